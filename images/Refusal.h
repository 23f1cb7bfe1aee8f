#pragma once

#include <optional>

#include "images/Complaint.h"
#include "images/ProfileChoice.h"

/// The library's own words for what it refused last, when they are about the file; nothing else is said about the file by those who have them.
///
/// path    the file as the user named it
std::optional<Complaint> RefusalOf(const std::string& path, const FSRef& file);
std::optional<Complaint> RefusalOf(const ChosenProfile& profile);
