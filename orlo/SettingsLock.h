#pragma once

#include "images/Complaint.h"

/// Keeps other orlo commands from changing the stored settings while it lives: some settings are stored along with their neighbours, which are read
/// first, and of two that read before either writes the second would undo the first.
class SettingsLock {
public:
    /// Waits for others, but not for long. Throws Complaint. What was read of the settings before may be old afterwards.
    SettingsLock();
    SettingsLock(const SettingsLock&) = delete;
    SettingsLock& operator=(const SettingsLock&) = delete;
    ~SettingsLock();

private:
    int descriptor_;
};

/// What is said where the settings cannot be written.
Complaint SettingsNotWritten();
