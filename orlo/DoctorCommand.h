#pragma once

#include "orlo/CommandTable.h"

/// doctor: looks at all that colours depend on here.
std::vector<Command> DoctorCommands();
