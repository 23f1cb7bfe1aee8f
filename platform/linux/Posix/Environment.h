#pragma once

/// What the surroundings of the process say. A program that runs with more rights than its user has (set-user-id) believes none of it: else the user
/// would choose what is read and written with those rights.

#include <string>

namespace platform {

/// The value of an environment variable; null when it is not set, or not to be believed.
const char* EnvironmentVariable(const char* name);

/// $HOME, or else the home folder of the effective user; empty when neither is an absolute path.
std::string HomeFolder();
/// The home folder of the effective user in the system's list of users; empty when there is none.
std::string HomeInPasswordDatabase();

}  // namespace platform
