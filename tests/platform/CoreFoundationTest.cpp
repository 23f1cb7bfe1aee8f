#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <thread>
#include <vector>

#include "platform/CoreFoundation.h"
#include "platform/Owned.h"
#include "tests/fixtures/StringText.h"

namespace {

constexpr SInt64 kTwoTo53 = SInt64{1} << 53;

Owned<CFNumberRef> Integer(SInt64 value) {
    return Owned<CFNumberRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
}
Owned<CFNumberRef> Real(double value) {
    return Owned<CFNumberRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &value));
}

Owned<CFDataRef> Data(const std::string& bytes) {
    return Owned<CFDataRef>(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
}

std::string Bytes(CFDataRef data) {
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(data)), static_cast<size_t>(CFDataGetLength(data))};
}

// ---- every object ----

TEST(CoreFoundationObject, CountsItsReferences) {
    const Owned<CFNumberRef> number = Integer(5);
    EXPECT_EQ(CFGetRetainCount(number.Get()), 1);
    EXPECT_EQ(CFRetain(number.Get()), number.Get());
    EXPECT_EQ(CFGetRetainCount(number.Get()), 2);
    CFRelease(number.Get());
    EXPECT_EQ(CFGetRetainCount(number.Get()), 1);
}

TEST(CoreFoundationObject, NullIsRefusedOrIgnored) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // A variable, as the compilers know that these calls never take null.
    const CFTypeRef null = std::vector<CFTypeRef>(1).front();
    EXPECT_DEBUG_DEATH(CFRelease(null), "");
    EXPECT_DEBUG_DEATH(CFRetain(null), "");
}

TEST(CoreFoundationObject, ConstantsAreNeverFreed) {
    const CFTypeRef constants[] = {kCFBooleanTrue, kCFBooleanFalse, CFSTR("constant"), kCFErrorDomainPOSIX};
    for (const CFTypeRef constant : constants) {
        for (int i = 0; i < 3; ++i) CFRelease(constant);
        CFRetain(constant);
        EXPECT_EQ(CFGetRetainCount(constant), std::numeric_limits<CFIndex>::max());
    }
    EXPECT_EQ(Text(CFSTR("constant")), "constant");
}

TEST(CoreFoundationObject, EveryKindHasItsOwnType) {
    const std::vector<CFTypeID> types = {CFStringGetTypeID(), CFNumberGetTypeID(),     CFBooleanGetTypeID(), CFDataGetTypeID(),
                                         CFArrayGetTypeID(),  CFDictionaryGetTypeID(), CFURLGetTypeID(),     CFErrorGetTypeID()};
    for (size_t i = 0; i < types.size(); ++i) {
        for (size_t j = 0; j < i; ++j) EXPECT_NE(types[i], types[j]);
    }
    EXPECT_EQ(CFGetTypeID(CFSTR("text")), CFStringGetTypeID());
    EXPECT_EQ(CFGetTypeID(Integer(1).Get()), CFNumberGetTypeID());
    EXPECT_EQ(CFGetTypeID(Real(1).Get()), CFNumberGetTypeID());
    EXPECT_EQ(CFGetTypeID(kCFBooleanTrue), CFBooleanGetTypeID());
    EXPECT_EQ(CFGetTypeID(Data("").Get()), CFDataGetTypeID());
}

TEST(CoreFoundationObject, IsNotEqualToAnotherKindOrToNull) {
    EXPECT_FALSE(CFEqual(CFSTR("1"), Integer(1).Get()));
    EXPECT_FALSE(CFEqual(kCFBooleanTrue, Integer(1).Get()));
    EXPECT_FALSE(CFEqual(CFSTR("a"), Data("a").Get()));
    EXPECT_FALSE(CFEqual(kCFBooleanTrue, kCFBooleanFalse));
    EXPECT_FALSE(CFEqual(CFSTR("1"), nullptr));
    EXPECT_FALSE(CFEqual(nullptr, CFSTR("1")));
}

TEST(CoreFoundationObject, ReferencesMayBeCountedOnManyThreads) {
    Owned<CFStringRef> string = NewString("shared by all");
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([string = string.Get()] {
            for (int round = 0; round < 20000; ++round) {
                CFRetain(string);
                CFRelease(string);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(CFGetRetainCount(string.Get()), 1);
}

TEST(CoreFoundationObject, TheLastOfManyThreadsFreesIt) {
    for (int round = 0; round < 200; ++round) {
        const Owned<CFNumberRef> element = Integer(round);
        const void* values[] = {element.Get()};
        const CFArrayRef array = CFArrayCreate(kCFAllocatorDefault, values, 1, &kCFTypeArrayCallBacks);
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i) {
            CFRetain(array);
            threads.emplace_back([array] {
                EXPECT_EQ(CFArrayGetCount(array), 1);
                CFRelease(array);
            });
        }
        CFRelease(array);
        for (std::thread& thread : threads) thread.join();
        ASSERT_EQ(CFGetRetainCount(element.Get()), 1);
    }
}

TEST(CoreFoundationObject, AnOwnerReleasesOnce) {
    const Owned<CFNumberRef> number = Integer(5);
    {
        Owned<CFNumberRef> first = Owned<CFNumberRef>::Retain(number.Get());
        Owned<CFNumberRef> second = std::move(first);
        EXPECT_EQ(CFGetRetainCount(number.Get()), 2);
        first = std::move(second);
        EXPECT_EQ(CFGetRetainCount(number.Get()), 2);
        Owned<CFNumberRef> third(first.Detach());
        EXPECT_FALSE(first);
        EXPECT_EQ(CFGetRetainCount(number.Get()), 2);
    }
    EXPECT_EQ(CFGetRetainCount(number.Get()), 1);
}

// ---- numbers ----

// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): the order reads as from what, to what, and whether exactly.
struct ConversionRow {
    const char* what;
    bool fromReal;
    double real;
    SInt64 integer;
    SInt32 asSInt32;
    bool exactSInt32;
    SInt64 asSInt64;
    bool exactSInt64;
    double asFloat64;
    bool exactFloat64;
};

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr SInt32 kMost32 = std::numeric_limits<SInt32>::max();
constexpr SInt32 kLeast32 = std::numeric_limits<SInt32>::min();
constexpr SInt64 kMost64 = std::numeric_limits<SInt64>::max();
constexpr SInt64 kLeast64 = std::numeric_limits<SInt64>::min();

const ConversionRow kConversions[] = {
    {"zero", false, 0, 0, 0, true, 0, true, 0.0, true},
    {"small integer", false, 0, -7, -7, true, -7, true, -7.0, true},
    {"largest 32-bit integer", false, 0, kMost32, kMost32, true, kMost32, true, 2147483647.0, true},
    {"smallest 32-bit integer", false, 0, kLeast32, kLeast32, true, kLeast32, true, -2147483648.0, true},
    {"one more than 32 bits", false, 0, SInt64{kMost32} + 1, kMost32, false, SInt64{kMost32} + 1, true, 2147483648.0, true},
    {"one less than 32 bits", false, 0, SInt64{kLeast32} - 1, kLeast32, false, SInt64{kLeast32} - 1, true, -2147483649.0, true},
    {"2^40", false, 0, SInt64{1} << 40, kMost32, false, SInt64{1} << 40, true, 1099511627776.0, true},
    {"2^53 + 1 is no real", false, 0, kTwoTo53 + 1, kMost32, false, kTwoTo53 + 1, true, 9007199254740992.0, false},
    {"largest 64-bit integer is no real", false, 0, kMost64, kMost32, false, kMost64, true, 9223372036854775808.0, false},
    {"smallest 64-bit integer", false, 0, kLeast64, kLeast32, false, kLeast64, true, -9223372036854775808.0, true},
    {"whole real", true, 3.0, 0, 3, true, 3, true, 3.0, true},
    {"negative zero", true, -0.0, 0, 0, true, 0, true, -0.0, true},
    {"real with a fraction", true, 3.5, 0, 3, false, 3, false, 3.5, true},
    {"negative fraction is cut toward zero", true, -3.5, 0, -3, false, -3, false, -3.5, true},
    {"real just past 32 bits", true, 2147483647.5, 0, kMost32, false, kMost32, false, 2147483647.5, true},
    {"real 2^31", true, 2147483648.0, 0, kMost32, false, SInt64{kMost32} + 1, true, 2147483648.0, true},
    {"real 2^63", true, 9223372036854775808.0, 0, kMost32, false, kMost64, false, 9223372036854775808.0, true},
    {"real -2^63", true, -9223372036854775808.0, 0, kLeast32, false, kLeast64, true, -9223372036854775808.0, true},
    {"real below -2^63", true, -9223372036854777856.0, 0, kLeast32, false, kLeast64, false, -9223372036854777856.0, true},
    {"huge real", true, 1e300, 0, kMost32, false, kMost64, false, 1e300, true},
    {"infinity", true, kInfinity, 0, kMost32, false, kMost64, false, kInfinity, true},
    {"minus infinity", true, -kInfinity, 0, kLeast32, false, kLeast64, false, -kInfinity, true},
};

TEST(CoreFoundationNumber, ConvertsAndTellsWhetherExactly) {
    for (const ConversionRow& row : kConversions) {
        SCOPED_TRACE(row.what);
        const Owned<CFNumberRef> number = row.fromReal ? Real(row.real) : Integer(row.integer);
        EXPECT_EQ(CFNumberIsFloatType(number.Get()), row.fromReal);
        SInt32 small = 99;
        EXPECT_EQ(CFNumberGetValue(number.Get(), kCFNumberSInt32Type, &small), row.exactSInt32);
        EXPECT_EQ(small, row.asSInt32);
        SInt64 large = 99;
        EXPECT_EQ(CFNumberGetValue(number.Get(), kCFNumberSInt64Type, &large), row.exactSInt64);
        EXPECT_EQ(large, row.asSInt64);
        double real = 99;
        EXPECT_EQ(CFNumberGetValue(number.Get(), kCFNumberFloat64Type, &real), row.exactFloat64);
        EXPECT_EQ(real, row.asFloat64);
        EXPECT_EQ(std::signbit(real), std::signbit(row.asFloat64));
    }
}

TEST(CoreFoundationNumber, NaNBecomesZeroInexactly) {
    const Owned<CFNumberRef> number = Real(std::numeric_limits<double>::quiet_NaN());
    SInt32 integer = 99;
    EXPECT_FALSE(CFNumberGetValue(number.Get(), kCFNumberSInt32Type, &integer));
    EXPECT_EQ(integer, 0);
    double real = 0;
    EXPECT_TRUE(CFNumberGetValue(number.Get(), kCFNumberFloat64Type, &real));
    EXPECT_TRUE(std::isnan(real));
}

TEST(CoreFoundationNumber, A32BitIntegerIsCreatedWithItsSign) {
    const SInt32 value = -2;
    const Owned<CFNumberRef> number(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value));
    SInt64 wide = 0;
    EXPECT_TRUE(CFNumberGetValue(number.Get(), kCFNumberSInt64Type, &wide));
    EXPECT_EQ(wide, -2);
    EXPECT_FALSE(CFNumberIsFloatType(number.Get()));
}

TEST(CoreFoundationNumber, AnUnknownTypeIsRefused) {
    const SInt64 value = 1;
    EXPECT_EQ(CFNumberCreate(kCFAllocatorDefault, 99, &value), nullptr);
    SInt64 read = 42;
    EXPECT_FALSE(CFNumberGetValue(Integer(1).Get(), 99, &read));
    EXPECT_EQ(read, 42);
}

struct EqualityRow {
    const char* what;
    Owned<CFNumberRef> a;
    Owned<CFNumberRef> b;
    bool equal;
};

TEST(CoreFoundationNumber, IsEqualByValueAcrossTypes) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EqualityRow rows[] = {
        {"same integers", Integer(3), Integer(3), true},
        {"integer and whole real", Integer(3), Real(3.0), true},
        {"integer and real with a fraction", Integer(3), Real(3.5), false},
        {"same reals", Real(0.1), Real(0.1), true},
        {"zero and minus zero", Real(0.0), Real(-0.0), true},
        {"zero and integer zero", Real(-0.0), Integer(0), true},
        {"2^53 + 1 is not rounded to the real", Integer(kTwoTo53 + 1), Real(static_cast<double>(kTwoTo53)), false},
        {"2^53", Integer(kTwoTo53), Real(static_cast<double>(kTwoTo53)), true},
        {"2^63 - 1 and real 2^63", Integer(kMost64), Real(9223372036854775808.0), false},
        {"-2^63", Integer(kLeast64), Real(-9223372036854775808.0), true},
        {"not a number equals itself", Real(nan), Real(-nan), true},
        {"not a number and zero", Real(nan), Integer(0), false},
        {"infinity", Real(kInfinity), Real(kInfinity), true},
        {"infinity and the largest integer", Real(kInfinity), Integer(kMost64), false},
        {"huge real", Real(1e300), Real(1e301), false},
    };
    for (const EqualityRow& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(CFEqual(row.a.Get(), row.b.Get()), row.equal);
        EXPECT_EQ(CFEqual(row.b.Get(), row.a.Get()), row.equal);
        if (row.equal) {
            EXPECT_EQ(CFHash(row.a.Get()), CFHash(row.b.Get()));
        }
    }
}

// ---- booleans ----

TEST(CoreFoundationBoolean, IsTrueForTheTrueObjectOnly) {
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
    EXPECT_FALSE(CFBooleanGetValue(kCFBooleanFalse));
    // Deliberate: objects of other kinds are asked too, and none of them is the true object.
    EXPECT_FALSE(CFBooleanGetValue(static_cast<CFBooleanRef>(static_cast<CFTypeRef>(Integer(1).Get()))));
    EXPECT_FALSE(CFBooleanGetValue(static_cast<CFBooleanRef>(static_cast<CFTypeRef>(CFSTR("true")))));
    EXPECT_FALSE(CFBooleanGetValue(nullptr));
}

// ---- data ----

TEST(CoreFoundationData, KeepsACopyOfTheBytes) {
    std::string bytes("a\0b\xFF", 4);
    const Owned<CFDataRef> data = Data(bytes);
    bytes[0] = 'z';
    EXPECT_EQ(Bytes(data.Get()), std::string("a\0b\xFF", 4));
}

TEST(CoreFoundationData, MayBeEmpty) {
    const Owned<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, nullptr, 0));
    EXPECT_EQ(CFDataGetLength(data.Get()), 0);
    EXPECT_NE(CFDataGetBytePtr(data.Get()), nullptr);
    EXPECT_TRUE(CFEqual(data.Get(), Data("").Get()));
}

TEST(CoreFoundationData, IsEqualByItsBytes) {
    EXPECT_TRUE(CFEqual(Data("abc").Get(), Data("abc").Get()));
    EXPECT_EQ(CFHash(Data("abc").Get()), CFHash(Data("abc").Get()));
    EXPECT_FALSE(CFEqual(Data("abc").Get(), Data("abd").Get()));
    EXPECT_FALSE(CFEqual(Data("abc").Get(), Data("ab").Get()));
}

TEST(CoreFoundationData, GrowsWithZerosAndShrinks) {
    for (const CFIndex capacity : {CFIndex{0}, CFIndex{6}}) {
        const Owned<CFMutableDataRef> data(CFDataCreateMutable(kCFAllocatorDefault, capacity));
        ASSERT_TRUE(data);
        EXPECT_EQ(CFDataGetLength(data.Get()), 0);
        CFDataSetLength(data.Get(), 4);
        EXPECT_EQ(Bytes(data.Get()), std::string(4, '\0'));
        std::fill_n(CFDataGetMutableBytePtr(data.Get()), 4, UInt8{'x'});
        CFDataSetLength(data.Get(), 2);
        EXPECT_EQ(Bytes(data.Get()), "xx");
        CFDataSetLength(data.Get(), 6);
        EXPECT_EQ(Bytes(data.Get()), std::string("xx\0\0\0\0", 6));
        CFDataSetLength(data.Get(), 0);
        EXPECT_EQ(CFDataGetLength(data.Get()), 0);
    }
}

TEST(CoreFoundationData, DoesNotPassItsCapacity) {
    const Owned<CFMutableDataRef> data(CFDataCreateMutable(kCFAllocatorDefault, 4));
    CFDataSetLength(data.Get(), 4);
    CFDataSetLength(data.Get(), 5);
    EXPECT_EQ(CFDataGetLength(data.Get()), 4);
}

TEST(CoreFoundationData, CannotBeChangedWhenItWasMadeWhole) {
    const Owned<CFDataRef> data = Data("abc");
    const CFMutableDataRef pretended = const_cast<CFMutableDataRef>(data.Get());
    EXPECT_EQ(CFDataGetMutableBytePtr(pretended), nullptr);
    CFDataSetLength(pretended, 1);
    EXPECT_EQ(Bytes(data.Get()), "abc");
}

struct RangeRow {
    const char* what;
    CFRange range;
    const char* buffer;
};

TEST(CoreFoundationData, CopiesARangeOrNothing) {
    const RangeRow rows[] = {
        {"middle", {1, 2}, "bc---"},           {"whole", {0, 5}, "abcde"},
        {"nothing", {2, 0}, "-----"},          {"nothing at the end", {5, 0}, "-----"},
        {"past the end", {3, 3}, "-----"},     {"before the start", {-1, 2}, "-----"},
        {"negative length", {1, -1}, "-----"}, {"a sum past all numbers", {2, std::numeric_limits<CFIndex>::max()}, "-----"},
    };
    const Owned<CFDataRef> data = Data("abcde");
    for (const RangeRow& row : rows) {
        SCOPED_TRACE(row.what);
        UInt8 buffer[6] = {'-', '-', '-', '-', '-', 0};
        CFDataGetBytes(data.Get(), row.range, buffer);
        EXPECT_STREQ(reinterpret_cast<const char*>(buffer), row.buffer);
    }
}

}  // namespace
