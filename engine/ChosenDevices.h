#pragma once

/// What a record is built of, where the profiles need not be behind alias records. C++ only, used inside the library.

#include "engine/MatchingData.h"

/// A device's profile: behind an alias record, which is opened when its turn comes, or open already, with what a refusal calls it. Borrowed.
struct DeviceProfile {
    AliasHandle alias = nullptr;
    ColorSyncProfileRef opened = nullptr;
    const char* name = "";

    explicit operator bool() const { return alias || opened; }
};

/// The monitor may be absent only as an alias that does not resolve; without a proofer there is none.
struct ChosenDevices {
    DeviceProfile monitor, printer, proofer;
};

/// LoadMatchingData of such devices. What was refused before it stays, so that the caller's own checks may be told.
MatchingData* LoadMatchingData(const ChosenDevices& devices, const FixedXYZ* monitorWhite, const FixedXYZ* printerWhite, OSErr* status);
