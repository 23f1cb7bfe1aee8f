#pragma once

#include <string>

#include "ColourMatch/ColourMatch.h"

/// The string in UTF-8; empty for null and for what UTF-8 cannot say.
std::string TextOf(CFStringRef string);
/// The file that the URL leads to; empty for null and for what is no file's.
std::string PathOf(CFURLRef url);

/// Of the 26 letters that every character set has; others stay.
std::string SmallLetters(std::string text);
std::string CapitalLetters(std::string text);
