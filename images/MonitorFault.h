#pragma once

#include <optional>

#include "images/Complaint.h"
#include "images/ProfileChoice.h"

/// What in the monitor's profile a matching record could not be built from; nothing when the fault is not there.
///
/// status   what LoadMatchingData answered: kStatusNoMemory or kStatusProfileUnsuitable
std::optional<Complaint> FaultOfMonitor(const ChosenProfile& monitor, OSErr status);
