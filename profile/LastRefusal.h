#pragma once

/// Why a profile was refused, in words.

#include "platform/CoreFoundation.h"

CM_C_BEGIN

/// The sentence of the latest refusal in this process, for a host to show beside the status that it was answered with.
///
/// It names the file where there is one, the tag, and what would be right: "FILE: WHAT IS WRONG; WHAT IS NEEDED". Opening, checking, sampling and
/// loading profiles fill it; what they accept leaves it as it was, so that it means something only after a refusal. When two threads are refused at
/// once, the later one's stands. One line of English text; in UTF-8 whatever the file's name.
///
/// returns   a string that the caller releases; null when nothing was refused yet, and without memory
///
/// Any thread.
CM_EXPORT CFStringRef ICC_CopyLastRefusal(void);

CM_C_END
