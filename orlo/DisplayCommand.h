#pragma once

#include <span>

/// The commands "displays" and "gamma", given the arguments after them. Each throws Complaint.
void RunDisplaysCommand(std::span<char* const> arguments);
void RunGammaCommand(std::span<char* const> arguments);
