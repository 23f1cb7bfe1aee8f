#pragma once

/// Raising failures. Below the entry points a failure is thrown; every entry point catches it and answers with a status.
///
/// What is thrown is always the signed long 0x65727220; the code and the message designator stand in gLastError and gLastMessage
/// (plain globals, last writer wins, for diagnosis only).

#include "platform/CoreFoundation.h"

CM_C_BEGIN

/// True: Failure stops in the debugger before it records and raises.
CM_EXPORT_DATA extern Boolean gBreakFailure;
/// True: FailNIL and FailOSErr stop in the debugger on every call, also when nothing is wrong.
CM_EXPORT_DATA extern Boolean gAskFailure;
/// The code of the most recent failure.
CM_EXPORT_DATA extern short gLastError;
/// The message designator of the most recent failure, 0 when none was given.
CM_EXPORT_DATA extern long gLastMessage;

CM_EXPORT CM_NORETURN void Failure(short error, long message);
CM_EXPORT CM_NORETURN void Fail(short error);
/// Failure(-108, 0) for a null pointer.
CM_EXPORT void FailNIL(void* pointer);
/// Failure(error, 0) for a code other than 0.
CM_EXPORT void FailOSErr(short error);
/// A message designator: ((table - 1024) << 16) | index, or just index for table 0.
CM_EXPORT long SpecifyMsg(short table, short index);

CM_C_END
