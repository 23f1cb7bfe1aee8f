#include <glib.h>
#include <gtest/gtest.h>

#include <array>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <thread>

#include "platform/CoreFoundation.h"
#include "tests/fixtures/CommaLocale.h"
#include "tests/fixtures/StringText.h"

namespace {

std::u16string Units(CFStringRef string) {
    std::u16string units;
    for (CFIndex i = 0; i < CFStringGetLength(string); ++i) units += static_cast<char16_t>(CFStringGetCharacterAtIndex(string, i));
    return units;
}

Owned<CFStringRef> FromUnits(const std::u16string& units) {
    return Owned<CFStringRef>(
        CFStringCreateWithCharacters(kCFAllocatorDefault, reinterpret_cast<const UniChar*>(units.data()), static_cast<CFIndex>(units.size())));
}

// ---- encodings ----

TEST(CoreFoundationString, HoldsUTF16Units) {
    const Owned<CFStringRef> string = NewString("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xA8");
    EXPECT_EQ(Units(string.Get()), u"aé€🎨");
    EXPECT_EQ(CFStringGetLength(string.Get()), 5);
    EXPECT_EQ(CFStringGetCharacterAtIndex(string.Get(), 5), 0);
    EXPECT_EQ(CFStringGetCharacterAtIndex(string.Get(), -1), 0);
}

TEST(CoreFoundationString, EveryCodePointSurvives) {
    for (gunichar point = 1; point <= 0x10FFFF; ++point) {
        if (point >= 0xD800 && point <= 0xDFFF) continue;
        char bytes[8] = {};
        g_unichar_to_utf8(point, bytes);
        const std::unique_ptr<gunichar2, decltype(&g_free)> expected(g_utf8_to_utf16(bytes, -1, nullptr, nullptr, nullptr), &g_free);
        const Owned<CFStringRef> string(CFStringCreateWithCString(kCFAllocatorDefault, bytes, kCFStringEncodingUTF8));
        ASSERT_TRUE(string) << std::hex << point;
        const CFIndex length = point > 0xFFFF ? 2 : 1;
        ASSERT_EQ(CFStringGetLength(string.Get()), length) << std::hex << point;
        for (CFIndex i = 0; i < length; ++i) ASSERT_EQ(CFStringGetCharacterAtIndex(string.Get(), i), expected.get()[i]) << std::hex << point;
        ASSERT_EQ(Text(string), bytes) << std::hex << point;
    }
}

/// Compares with GLib's own validation.
void ExpectValidityOf(const std::string& bytes) {
    const bool valid = g_utf8_validate(bytes.data(), static_cast<gssize>(bytes.size()), nullptr);
    const Owned<CFStringRef> string = NewString(bytes);
    ASSERT_EQ(static_cast<bool>(string), valid) << testing::PrintToString(bytes);
    if (valid) {
        ASSERT_EQ(Text(string), bytes);
    }
}

TEST(CoreFoundationString, OnlyValidUTF8IsTaken) {
    // Every pair of bytes, and every longer run of bytes that stand at a border of the encoding.
    for (int first = 1; first < 256; ++first) {
        ExpectValidityOf({static_cast<char>(first)});
        for (int second = 1; second < 256; ++second) ExpectValidityOf({static_cast<char>(first), static_cast<char>(second)});
    }
    constexpr unsigned char kBorders[] = {0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF, 0xE0, 0xE1,
                                          0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xF8, 0xFC, 0xFE, 0xFF};
    for (const unsigned char a : kBorders) {
        for (const unsigned char b : kBorders) {
            for (const unsigned char c : kBorders) {
                ExpectValidityOf({static_cast<char>(a), static_cast<char>(b), static_cast<char>(c)});
                for (const unsigned char d : kBorders) {
                    ExpectValidityOf({static_cast<char>(a), static_cast<char>(b), static_cast<char>(c), static_cast<char>(d)});
                }
            }
        }
    }
}

TEST(CoreFoundationString, MayHoldAZeroCharacter) {
    const Owned<CFStringRef> string = NewString(std::string("a\0b", 3));
    ASSERT_TRUE(string);
    EXPECT_EQ(Units(string.Get()), std::u16string(u"a\0b", 3));
}

struct CreateRow {
    const char* what;
    std::string bytes;
    CFStringEncoding encoding;
    bool external;
    /// "(null)": refused.
    const char* text;
};

TEST(CoreFoundationString, IsCreatedInTheAskedEncoding) {
    const CreateRow rows[] = {
        {"ASCII", "abc", kCFStringEncodingASCII, false, "abc"},
        {"last ASCII byte", "\x7F", kCFStringEncodingASCII, false, "\x7F"},
        {"first byte beyond ASCII", "\x80", kCFStringEncodingASCII, false, "(null)"},
        {"UTF-8 is not ASCII", "\xC3\xA9", kCFStringEncodingASCII, false, "(null)"},
        {"UTF-8", "\xC3\xA9", kCFStringEncodingUTF8, false, "\xC3\xA9"},
        {"nothing", "", kCFStringEncodingUTF8, false, ""},
        {"a mark at the front is kept", "\xEF\xBB\xBFx", kCFStringEncodingUTF8, false, "\xEF\xBB\xBFx"},
        {"a mark in front of outside text is dropped", "\xEF\xBB\xBFx", kCFStringEncodingUTF8, true, "x"},
        {"an encoding that is not there", "abc", 0x1234, false, "(null)"},
    };
    for (const CreateRow& row : rows) {
        SCOPED_TRACE(row.what);
        const Owned<CFStringRef> string(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(row.bytes.data()),
                                                                static_cast<CFIndex>(row.bytes.size()), row.encoding, row.external));
        EXPECT_EQ(Text(string), row.text);
        if (!row.external) {
            const Owned<CFStringRef> same(CFStringCreateWithCString(kCFAllocatorDefault, row.bytes.c_str(), row.encoding));
            EXPECT_EQ(Text(same), row.text);
        }
    }
}

struct CStringRow {
    const char* what;
    std::u16string units;
    CFIndex bufferSize;
    CFStringEncoding encoding;
    /// Null: refused.
    const char* bytes;
};

TEST(CoreFoundationString, IsWrittenWhenItFitsAndCanBeEncoded) {
    const CStringRow rows[] = {
        {"exact room", u"abc", 4, kCFStringEncodingUTF8, "abc"},
        {"no room for the terminating 0", u"abc", 3, kCFStringEncodingUTF8, nullptr},
        {"exact room in bytes, not units", u"é", 3, kCFStringEncodingUTF8, "\xC3\xA9"},
        {"one byte too few", u"é", 2, kCFStringEncodingUTF8, nullptr},
        {"nothing", u"", 1, kCFStringEncodingUTF8, ""},
        {"no buffer", u"", 0, kCFStringEncodingUTF8, nullptr},
        {"negative buffer", u"a", -1, kCFStringEncodingUTF8, nullptr},
        {"ASCII", u"abc", 4, kCFStringEncodingASCII, "abc"},
        {"beyond ASCII", u"é", 8, kCFStringEncodingASCII, nullptr},
        {"surrogate pair", u"🎨", 5, kCFStringEncodingUTF8, "\xF0\x9F\x8E\xA8"},
        {"lone high surrogate", {0xD83C}, 8, kCFStringEncodingUTF8, nullptr},
        {"high surrogate before a letter", {0xD83C, u'a'}, 8, kCFStringEncodingUTF8, nullptr},
        {"lone low surrogate", {0xDFA8}, 8, kCFStringEncodingUTF8, nullptr},
        {"an encoding that is not there", u"abc", 8, 0x1234, nullptr},
    };
    for (const CStringRow& row : rows) {
        SCOPED_TRACE(row.what);
        char buffer[16] = "untouched";
        EXPECT_EQ(CFStringGetCString(FromUnits(row.units).Get(), buffer, row.bufferSize, row.encoding), row.bytes != nullptr);
        EXPECT_STREQ(buffer, row.bytes ? row.bytes : "untouched");
    }
}

TEST(CoreFoundationString, TellsTheLargestSizeInAnEncoding) {
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(0, kCFStringEncodingUTF8), 0);
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(10, kCFStringEncodingASCII), 10);
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(10, kCFStringEncodingUTF8), 30);
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(std::numeric_limits<CFIndex>::max() / 2, kCFStringEncodingUTF8), -1);
}

// ---- constants ----

TEST(CoreFoundationString, TheSameConstantIsTheSameObject) {
    EXPECT_EQ(CFSTR("one text"), CFSTR("one text"));
    EXPECT_NE(CFSTR("one text"), CFSTR("another text"));
    char changing[] = "text of a buffer";
    const CFStringRef first = __CFStringMakeConstantString(changing);
    changing[0] = 'T';
    EXPECT_EQ(Text(first), "text of a buffer");
    EXPECT_EQ(Text(__CFStringMakeConstantString(changing)), "Text of a buffer");
    EXPECT_EQ(__CFStringMakeConstantString("\xFF"), nullptr);
}

TEST(CoreFoundationString, AConstantIsMadeOnceByManyThreads) {
    constexpr int kThreads = 8;
    constexpr int kTexts = 200;
    std::array<std::array<CFStringRef, kTexts>, kThreads> found{};
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (auto& own : found) {
        threads.emplace_back([&own] {
            for (int i = 0; i < kTexts; ++i) own[static_cast<size_t>(i)] = __CFStringMakeConstantString(("thread text " + std::to_string(i)).c_str());
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (int i = 0; i < kTexts; ++i) {
        const auto index = static_cast<size_t>(i);
        EXPECT_EQ(Text(found[0][index]), "thread text " + std::to_string(i));
        for (const auto& own : found) EXPECT_EQ(own[index], found[0][index]);
    }
}

TEST(CoreFoundationString, PublishedConstantsHaveTheirTexts) {
    EXPECT_EQ(Text(kCFErrorDomainPOSIX), "NSPOSIXErrorDomain");
    EXPECT_EQ(Text(kCFErrorLocalizedDescriptionKey), "NSLocalizedDescription");
    EXPECT_EQ(Text(kCFErrorLocalizedFailureReasonKey), "NSLocalizedFailureReason");
    EXPECT_TRUE(CFEqual(kCFErrorDomainPOSIX, CFSTR("NSPOSIXErrorDomain")));
    EXPECT_EQ(CFHash(kCFErrorDomainPOSIX), CFHash(CFSTR("NSPOSIXErrorDomain")));
}

// ---- comparing and cutting ----

struct OrderRow {
    const char* what;
    std::u16string a;
    std::u16string b;
    CFComparisonResult exact;
    CFComparisonResult ignoringCase;
};

TEST(CoreFoundationString, IsOrderedByItsUnits) {
    const OrderRow rows[] = {
        {"same", u"abc", u"abc", kCFCompareEqualTo, kCFCompareEqualTo},
        {"both empty", u"", u"", kCFCompareEqualTo, kCFCompareEqualTo},
        {"shorter first", u"ab", u"abc", kCFCompareLessThan, kCFCompareLessThan},
        {"capitals first", u"B", u"a", kCFCompareLessThan, kCFCompareGreaterThan},
        {"only the case differs", u"ColourMatch", u"COLOURMATCH", kCFCompareGreaterThan, kCFCompareEqualTo},
        {"accented letters", u"ÉTÉ", u"été", kCFCompareLessThan, kCFCompareEqualTo},
        {"other alphabets", u"ЦВЕТ", u"цвет", kCFCompareLessThan, kCFCompareEqualTo},
        {"letters beyond 16 bits", u"𐐀", u"𐐨", kCFCompareLessThan, kCFCompareEqualTo},
        {"a lone surrogate is only itself", {0xD801}, u"a", kCFCompareGreaterThan, kCFCompareGreaterThan},
    };
    for (const OrderRow& row : rows) {
        SCOPED_TRACE(row.what);
        const Owned<CFStringRef> a = FromUnits(row.a);
        const Owned<CFStringRef> b = FromUnits(row.b);
        EXPECT_EQ(CFStringCompare(a.Get(), b.Get(), 0), row.exact);
        EXPECT_EQ(CFStringCompare(b.Get(), a.Get(), 0), -row.exact);
        EXPECT_EQ(CFStringCompare(a.Get(), b.Get(), kCFCompareCaseInsensitive), row.ignoringCase);
        EXPECT_EQ(CFStringCompare(b.Get(), a.Get(), kCFCompareCaseInsensitive), -row.ignoringCase);
        EXPECT_EQ(CFEqual(a.Get(), b.Get()), row.exact == kCFCompareEqualTo);
    }
    EXPECT_EQ(CFHash(NewString("same").Get()), CFHash(NewString("same").Get()));
}

TEST(CoreFoundationString, KnowsItsPrefix) {
    EXPECT_TRUE(CFStringHasPrefix(CFSTR("xyz:1"), CFSTR("xyz:")));
    EXPECT_TRUE(CFStringHasPrefix(CFSTR("xyz:"), CFSTR("xyz:")));
    EXPECT_TRUE(CFStringHasPrefix(CFSTR("x"), CFSTR("")));
    EXPECT_FALSE(CFStringHasPrefix(CFSTR("xyz"), CFSTR("xyz:")));
    EXPECT_FALSE(CFStringHasPrefix(CFSTR("XYZ:1"), CFSTR("xyz:")));
    EXPECT_FALSE(CFStringHasPrefix(CFSTR(" xyz:1"), CFSTR("xyz:")));
}

struct SubstringRow {
    CFRange range;
    const char* text;
};

TEST(CoreFoundationString, GivesAPartOfItself) {
    const CFIndex most = std::numeric_limits<CFIndex>::max();
    const SubstringRow rows[] = {
        {{0, 3}, "abc"},    {{1, 2}, "bc"},      {{3, 0}, ""},        {{0, 0}, ""},          {{0, 4}, "(null)"},
        {{4, 0}, "(null)"}, {{-1, 1}, "(null)"}, {{1, -1}, "(null)"}, {{1, most}, "(null)"},
    };
    for (const SubstringRow& row : rows) {
        const Owned<CFStringRef> part(CFStringCreateWithSubstring(kCFAllocatorDefault, CFSTR("abc"), row.range));
        EXPECT_EQ(Text(part), row.text) << row.range.location << ", " << row.range.length;
    }
}

TEST(CoreFoundationString, ACopyIsEqualAndOwned) {
    const Owned<CFStringRef> string = NewString("text");
    {
        const Owned<CFStringRef> copy(CFStringCreateCopy(kCFAllocatorDefault, string.Get()));
        EXPECT_TRUE(CFEqual(copy.Get(), string.Get()));
    }
    EXPECT_EQ(CFGetRetainCount(string.Get()), 1);
}

struct SplitRow {
    const char* text;
    const char* separator;
    std::vector<std::string> pieces;
};

TEST(CoreFoundationString, IsSplitAtEverySeparator) {
    const SplitRow rows[] = {
        {"a\tb", "\t", {"a", "b"}},
        {"", "\t", {""}},
        {"a", "\t", {"a"}},
        {"a\t", "\t", {"a", ""}},
        {"\ta", "\t", {"", "a"}},
        {"\t", "\t", {"", ""}},
        {"a\t\tb", "\t", {"a", "", "b"}},
        {"a, b,c", ", ", {"a", "b,c"}},
        {"aaa", "aa", {"", "a"}},
        {"abc", "abc", {"", ""}},
        {"abc", "", {"abc"}},
        {"ab", "abc", {"ab"}},
        {"1\xE2\x82\xAC"
         "2",
         "\xE2\x82\xAC",
         {"1", "2"}},
    };
    for (const SplitRow& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text));
        const Owned<CFArrayRef> pieces(
            CFStringCreateArrayBySeparatingStrings(kCFAllocatorDefault, NewString(row.text).Get(), NewString(row.separator).Get()));
        ASSERT_TRUE(pieces);
        std::vector<std::string> found;
        for (CFIndex i = 0; i < CFArrayGetCount(pieces.Get()); ++i) {
            const CFTypeRef piece = CFArrayGetValueAtIndex(pieces.Get(), i);
            EXPECT_EQ(CFGetTypeID(piece), CFStringGetTypeID());
            EXPECT_EQ(CFGetRetainCount(piece), 1);
            found.push_back(Text(static_cast<CFStringRef>(piece)));
        }
        EXPECT_EQ(found, row.pieces);
    }
}

// ---- reading numbers ----

struct NumberRow {
    const char* text;
    double value;
};

const NumberRow kNumbers[] = {
    {"95.05", 95.05},
    {"100", 100.0},
    {"-1.5", -1.5},
    {"+2", 2.0},
    {"  7", 7.0},
    {"\t\n\r\f\v 8", 8.0},
    {"\xC2\xA0\xE2\x80\x83\xC2\x85"
     "9",
     9.0},
    {".5", 0.5},
    {"-.5", -0.5},
    {"5.", 5.0},
    {"1e3", 1000.0},
    {"1E-2", 0.01},
    {"1e+2", 100.0},
    {"1e", 1.0},
    {"1e+", 1.0},
    {"1 e3", 1.0},
    {"3,5", 3.0},
    {"1.2.3", 1.2},
    {"12abc", 12.0},
    {"0x10", 0.0},
    {"inf", 0.0},
    {"-infinity", 0.0},
    {"nan", 0.0},
    {"", 0.0},
    {".", 0.0},
    {"-", 0.0},
    {"e5", 0.0},
    {"+-1", 0.0},
    {"abc 5", 0.0},
    {"\xD9\xA3", 0.0},
    {"1e400", std::numeric_limits<double>::infinity()},
    {"-1e400", -std::numeric_limits<double>::infinity()},
    {"1e-400", 0.0},
    {"4.9406564584124654e-324", std::numeric_limits<double>::denorm_min()},
    {"1.7976931348623157e308", std::numeric_limits<double>::max()},
};

void ExpectNumbers() {
    for (const NumberRow& row : kNumbers) EXPECT_EQ(CFStringGetDoubleValue(NewString(row.text).Get()), row.value) << testing::PrintToString(row.text);
}

TEST(CoreFoundationString, ReadsALeadingDecimalNumber) {
    ExpectNumbers();
}

TEST(CoreFoundationString, ReadsEveryRealExactly) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 20000; ++i) {
        const std::uint64_t bits = random();
        double value;
        std::memcpy(&value, &bits, sizeof value);
        if (!std::isfinite(value)) continue;
        char text[40];
        std::snprintf(text, sizeof text, "%.17g", value);
        ASSERT_EQ(CFStringGetDoubleValue(NewString(text).Get()), value) << text;
    }
}

TEST(CoreFoundationString, ReadsNumbersTheSameWayInEveryLocale) {
    const CommaLocale locale;
    if (!locale.IsThere()) GTEST_SKIP() << "no locale with a decimal comma could be made (localedef gave " << locale.ToolStatus() << ")";
    ExpectNumbers();
}

}  // namespace
