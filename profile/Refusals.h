#pragma once

/// What fills ICC_CopyLastRefusal. C++ only, used inside the library. Any thread; raises nothing.

#include <initializer_list>
#include <string>
#include <string_view>

#include "platform/Carbon.h"

/// Begins what may be refused: what was refused before is no part of it.
void ForgetRefusal() noexcept;
/// Notes a refusal, in place of the one before.
///
/// what     the pieces of what is wrong, beginning in lower case and without an end
/// right    what would be right, likewise
void Refuse(std::initializer_list<std::string_view> what, std::string_view right) noexcept;
/// Adds the file that the latest refusal is about, unless one is named or nothing was refused.
void NameRefusedFile(const FSRef* file) noexcept;
void NameRefusedFile(AliasHandle alias) noexcept;
void NameRefusedFile(const std::string& path) noexcept;
/// Notes the refusal that a status stands for, unless there is one since ForgetRefusal: no memory, no file, a file that is too large or cannot be
/// read.
void RefuseForStatus(OSErr status) noexcept;

/// 'wtpt' with the quotes; what is no printable character becomes '?'. So short a string takes no memory.
std::string CodeText(uint32_t code);
