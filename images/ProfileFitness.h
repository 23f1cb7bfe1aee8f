#pragma once

#include <array>
#include <optional>
#include <string>

#include "images/Complaint.h"
#include "images/ProfileChoice.h"

enum class Device { Monitor, Printer, Proofer };
inline constexpr std::array<Device, 3> kDevices = {Device::Monitor, Device::Printer, Device::Proofer};
/// "monitor"
const char* NameOf(Device device);

/// Tells what profiles are fit for, by having the library load each: beside the reference profile for a monitor, and a printer of reference RGB.
class FitnessJudge {
public:
    /// Throws Complaint where the library's own profile is missing or there is no room for a temporary file.
    FitnessJudge();

    /// Why the library would not take the profile for the device; nothing when it does. Throws Complaint without memory.
    std::optional<Complaint> Against(const std::string& path, Device device) const;

private:
    ChosenProfile monitor_, printer_;
};
