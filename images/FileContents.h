#pragma once

/// What a file itself says where libvips passes over it in silence. A file that cannot be opened here is left to libvips.

#include <optional>
#include <string>

/// Where a JPEG file's pixels are damaged or missing, in words; nothing when all are there. What is only odd, such as a few bytes too many before a
/// marker, is no damage. Every pixel's data are read, and for a progressive file held.
std::optional<std::string> DamageOfJpeg(const std::string& path);

/// Whether a PNG or JPEG file carries an ICC profile or a part of one, sound or not.
bool CarriesProfile(const std::string& path);

/// Throws Complaint for a PGM or PPM file whose samples do not end at 255 or 65535, as its values would be taken for darker ones, and for one whose
/// pixels are not as many as its header says.
void CheckPortableMap(const std::string& path);
