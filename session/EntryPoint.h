#pragma once

#include <cstdint>

/// Runs the body of an entry point, so that nothing raised reaches the host.
///
/// raised    the answer when something was raised
template <typename Status = std::int16_t, typename Body>
Status Guarded(Body&& body, Status raised = 0) noexcept {
    try {
        return static_cast<Status>(body());
    } catch (...) {
        return raised;
    }
}
