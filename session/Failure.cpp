#include "session/Failure.h"

#include <cstdint>

#include "platform/Carbon.h"
#include "platform/Codes.h"

Boolean gBreakFailure = FALSE;
Boolean gAskFailure = FALSE;
short gLastError = 0;
long gLastMessage = 0;

namespace {

constexpr long kFailureRaised = 0x65727220;  // 'err '
constexpr int kFirstTable = 1024;

}  // namespace

void Failure(short error, long message) {
    if (gBreakFailure) Debugger();
    gLastError = error;
    gLastMessage = message;
    throw kFailureRaised;
}

void Fail(short error) {
    Failure(error, 0);
}

void FailNIL(void* pointer) {
    // Deliberate: the stop comes before the test, so also when nothing is wrong.
    if (gAskFailure) Debugger();
    if (!pointer) Failure(kStatusNoMemory, 0);
}

void FailOSErr(short error) {
    // Deliberate: the stop comes before the test, so also when nothing is wrong.
    if (gAskFailure) Debugger();
    if (error != 0) Failure(error, 0);
}

long SpecifyMsg(short table, short index) {
    if (table == 0) return index;
    // The shift keeps 16 bits of the difference. A negative index deliberately overwrites the table's half with ones.
    const auto tableBits = static_cast<std::uint32_t>(table - kFirstTable) << 16;
    return static_cast<std::int32_t>(tableBits | static_cast<std::uint32_t>(index));
}
