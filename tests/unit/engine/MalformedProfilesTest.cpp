// Profiles with one fault each, by name: the status, the sentence that a host shows, and the memory that the refusal takes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "profile/LastRefusal.h"
#include "session/MatchingSettings.h"
#include "tests/fixtures/MatchingRecords.h"
#include "tests/fixtures/ProfileBytes.h"
#include "tests/fixtures/StringText.h"
#include "tests/fixtures/TemporaryFolder.h"
#ifdef CM_WATCHES_THE_HEAP
#include "tests/fixtures/WatchedHeap.h"
#endif

namespace {

enum Role { kMonitor, kPrinter, kProofer };
constexpr const char* kRoles[] = {"monitor", "printer", "proofer"};

struct Row {
    std::string what;
    Role role;
    Bytes bytes;
    OSErr status;
    std::string wrong, right;  // parts of the sentence before and after its semicolon
};

constexpr const char* kWhole = "a whole ICC profile is needed";
constexpr const char* kModel = "three colourants and three tone curves is needed";
constexpr const char* kDevice = "the profile of a device";
constexpr const char* kDriven = "a printer profile for RGB or CMYK is needed";
constexpr const char* kIndependent = "three colourants that are not mixed of each other are needed";
constexpr std::size_t kCount = 128, kFirstOffset = 136, kFirstSize = 140;

ProfileMaker GoodMonitor() {
    return MatrixMonitor(CurvTag({0, 9000, 65535}));
}

Bytes GoodBytes(Role role) {
    return role == kMonitor ? GoodMonitor().Make() : GridPrinter("CMYK", 4).Make();
}

Bytes Changed(Bytes bytes, std::size_t offset, std::uint32_t value) {
    Put32(bytes, offset, value);
    return bytes;
}

std::vector<std::uint16_t> Swinging(std::size_t entries) {
    std::vector<std::uint16_t> curve(entries);
    for (std::size_t i = 0; i < entries; ++i) curve[i] = i % 2 ? 65535 : 0;
    return curve;
}

/// Faults of the file as such, whatever it is for.
void AddContainers(std::vector<Row>* rows, Role role) {
    const Bytes good = GoodBytes(role);
    const auto size = static_cast<std::uint32_t>(good.size());
    const auto add = [&](const std::string& what, Bytes bytes, const std::string& wrong) {
        rows->push_back({what, role, std::move(bytes), -170, "this is not a whole ICC profile: " + wrong, kWhole});
    };
    Bytes manyTags(132 + 12 * 101, 0);
    std::copy_n(good.begin(), 128, manyTags.begin());
    Put32(manyTags, 0, static_cast<std::uint32_t>(manyTags.size()));
    Put32(manyTags, kCount, 101);
    const auto firstData = static_cast<std::uint32_t>(132 + 12 * good[131]);
    Bytes overlapping = good;
    for (std::uint32_t i = 0; i < good[131]; ++i) {
        Put32(overlapping, kFirstOffset + 12 * i, firstData + i);
        Put32(overlapping, kFirstSize + 12 * i, size - firstData - i);
    }
    add("no bytes", {}, "the data is 0 bytes long; a profile has at least 132");
    add("cut in the header", Bytes(good.begin(), good.begin() + 131), "the data is 131 bytes long");
    add("no signature", Changed(good, 36, 0), "the data does not have the signature of a profile");
    add("cut at the end", Bytes(good.begin(), good.end() - 1), "the profile says that it is " + std::to_string(size) + " bytes long, but there are");
    add("no size", Changed(good, 0, 0), "the profile says that it is 0 bytes long");
    add("more tags than bytes", Changed(good, kCount, 0xFFFFFFFF), "a table of 4294967295 tags is too long");
    add("101 tags", manyTags, "a table of 101 tags is too long");
    add("a tag after the end", Changed(good, kFirstOffset, size), "tag 0, 'wtpt', lies outside the profile");
    add("a tag in the table", Changed(good, kFirstOffset, 132), "tag 0, 'wtpt', lies outside the profile");
    rows->push_back({"tags over each other", role, overlapping, -170, "', overlaps with others", kWhole});
    add("class of nothing", Changed(good, 12, Code("none")), "the profile cannot be used: ");
    add("version 5", Changed(good, 8, 0x05100000), "the profile cannot be used: ");
}

void AddMonitors(std::vector<Row>* rows) {
    const auto add = [&](const std::string& what, const ProfileMaker& maker, OSErr status, const std::string& wrong, const std::string& right) {
        rows->push_back({what, kMonitor, maker.Make(), status, wrong, right});
    };
    for (const std::string tag : {"rXYZ", "rTRC", "gXYZ", "gTRC", "bXYZ", "bTRC"}) {
        add("without " + tag, GoodMonitor().Remove(tag), -170, "tag '" + tag + "' is missing", kModel);
    }
    for (const std::string tag : {"rTRC", "gTRC", "bTRC"}) {
        const std::string name = "tag '" + tag + "' ";
        const auto addCurve = [&](const std::string& what, const Bytes& curve, OSErr status, const std::string& wrong, const std::string& right) {
            add(what + " as " + tag, GoodMonitor().Set(tag, curve), status, name + wrong, right);
        };
        addCurve("eight bytes", TagOfType("curv"), -170, "has 8 bytes", "a tone curve has at least 12");
        addCurve("a colourant", XYZTag(1, 1, 1), -170, "is of the type 'XYZ '", "of the type 'curv' or 'para'");
        addCurve("function 5", ParaTag(5, {1, 1, 1, 1, 1, 1, 1}), -170, "is of function type 5", "0 to 4");
        addCurve("function 65535", ParaTag(65535, {1}), -170, "is of function type 65535", "0 to 4");
        const std::vector<double> parameters = {2.4, 0.9, 0.1, 0.1, 0.04, 0, 0};
        const std::ptrdiff_t counts[] = {1, 3, 4, 5, 7};
        for (unsigned type = 0; type < 5; ++type) {
            addCurve("function " + std::to_string(type) + " short of one", ParaTag(type, {parameters.begin(), parameters.begin() + counts[type] - 1}),
                     -170, "is too short for function type " + std::to_string(type), "1, 3, 4, 5 and 7 parameters");
        }
        addCurve("a curve of fewer entries than it says", Changed(CurvTag({0, 65535}), 8, 1000), -170,
                 "says that it has 1000 entries and has room for 2", "whose entries are all there");
        addCurve("65537 entries", CurvTag(std::vector<std::uint16_t>(65537, 9)), -108, "has 65537 entries", "65536 at most");
        addCurve("65536 swings", CurvTag(Swinging(65536)), -108, "goes up and down too often", "rises or falls");
    }
    add("one swing too many in three curves", MatrixMonitor(CurvTag(Swinging(1322))), -108, "tag 'bTRC' goes up and down too often",
        "rises or falls");
    for (const std::string tag : {"rXYZ", "gXYZ", "bXYZ"}) {
        add("zero " + tag, GoodMonitor().Set(tag, XYZTag(0, 0, 0)), -170, "tag '" + tag + "' is zero", kIndependent);
        Bytes cut = XYZTag(0.4, 0.4, 0.4);
        cut.pop_back();
        add("cut " + tag, GoodMonitor().Set(tag, cut), -170, "tag '" + tag + "' has 19 bytes", "a colourant has 20");
    }
    add("colourants on a line", GoodMonitor().Set("gXYZ", XYZTag(0.43607, 0.22249, 0.01392)), -170, "its colourants have no inverse", kIndependent);
}

void AddPrinters(std::vector<Row>* rows) {
    for (const std::string space : {"CMY ", "HSV ", "2CLR", "4CLR", "6CLR", "8CLR", "FCLR", "Lab "}) {
        ProfileMaker maker = GridPrinter("CMYK", 4);
        maker.space = Code(space);
        rows->push_back({"a printer of " + space, kPrinter, maker.Make(), -170, "the profile's colour space is '" + space + "'", kDriven});
    }
    ProfileMaker binary = GridPrinter("CMYK", 4);
    binary.space = 0xC34D594B;
    rows->push_back({"a printer whose space is no text", kPrinter, binary.Make(), -170, "the profile's colour space is '?MYK'", kDriven});
}

void AddDevices(std::vector<Row>* rows, Role role) {
    const auto add = [&](const std::string& what, const ProfileMaker& maker, const std::string& wrong) {
        rows->push_back({what, role, maker.Make(), -50, wrong, kDevice});
    };
    add("without A2B0", GridPrinter("CMYK", 4).Remove("A2B0"), "tag 'A2B0' is missing");
    add("without B2A0", GridPrinter("CMYK", 4).Remove("B2A0"), "tag 'B2A0' is missing");
    add("a colourant as A2B0", GridPrinter("CMYK", 4).Set("A2B0", XYZTag(1, 1, 1)), "tag 'A2B0' cannot be used");
    add("a colourant as B2A0", GridPrinter("CMYK", 4).Set("B2A0", XYZTag(1, 1, 1)), "tag 'B2A0' cannot be used");
    add("A2B0 without grid", GridPrinter("CMYK", 4).Set("A2B0", TagOfType("mft2")), "tag 'A2B0' cannot be used");
    add("B2A0 without grid", GridPrinter("CMYK", 4).Set("B2A0", TagOfType("mft2")), "tag 'B2A0' cannot be used");
}

void AddProofers(std::vector<Row>* rows) {
    const std::pair<const char*, std::size_t> devices[] = {{"BCLR", 11}, {"CCLR", 12}, {"DCLR", 13}, {"ECLR", 14}, {"FCLR", 15}, {"MCHF", 15}};
    for (const auto& [space, channels] : devices) {
        ProfileMaker maker = GridPrinter("CMYK", 4);
        maker.space = Code(space);
        rows->push_back({std::string("a proofer of ") + space, kProofer, maker.Make(), -170,
                         "the device has " + std::to_string(channels) + " channels", "10 at most is needed"});
    }
    for (const std::string profileClass : {"link", "abst", "nmcl"}) {
        ProfileMaker maker = GridPrinter("CMYK", 4);
        maker.profileClass = Code(profileClass);
        rows->push_back(
            {"a proofer of class " + profileClass, kProofer, maker.Make(), -50, "the profile's class is '" + profileClass + "'", kDevice});
    }
    for (const std::string space : {"Lab ", "XYZ "}) {
        ProfileMaker maker = GridPrinter("CMYK", 4);
        maker.space = Code(space);
        rows->push_back({"a proofer of " + space, kProofer, maker.Make(), -50, "the profile's colour space is '" + space + "'", kDevice});
    }
    ProfileMaker binary = GridPrinter("RGB ", 3);
    binary.space = 0xD2474220;
    rows->push_back({"a proofer whose space is no text", kProofer, binary.Make(), -50, "the profile's colour space is '?GB '", kDevice});
}

std::vector<Row> Rows() {
    std::vector<Row> rows;
    for (const Role role : {kMonitor, kPrinter, kProofer}) AddContainers(&rows, role);
    AddMonitors(&rows);
    AddPrinters(&rows);
    for (const Role role : {kPrinter, kProofer}) AddDevices(&rows, role);
    AddProofers(&rows);
    return rows;
}

std::string LastRefusal() {
    const Owned<CFStringRef> sentence(ICC_CopyLastRefusal());
    return sentence ? Text(sentence.Get()) : "(none)";
}

Choice ChoiceOf(Role role, const std::string& path) {
    switch (role) {
        case kMonitor:
            return {path, kCMYKPrinter};
        case kPrinter:
            return {kSRGBMonitor, path};
        default:
            return {kSRGBMonitor, kCMYKPrinter, path, 1};
    }
}

}  // namespace

TEST(MalformedProfiles, AreRefusedWithStatusAndSentence) {
    const TemporaryFolder folder;
    const std::vector<Row> rows = Rows();
    EXPECT_GE(rows.size(), 100U);
    std::set<std::string> names, sentences;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what + ", " + kRoles[row.role]);
        EXPECT_TRUE(names.insert(row.what + kRoles[row.role]).second);
        const std::string path = folder.Write("made.icc", row.bytes);
#ifdef CM_WATCHES_THE_HEAP
        const std::size_t before = heap::BytesInUse();
        heap::ForgetPeak();
#endif
        const Loaded loaded = Load(ChoiceOf(row.role, path));
#ifdef CM_WATCHES_THE_HEAP
        EXPECT_LE((heap::PeakBytes() - before) >> 20, 64U);
#endif
        EXPECT_EQ(loaded.status, row.status);
        EXPECT_EQ(loaded.data, nullptr);
        const std::string sentence = LastRefusal();
        EXPECT_THAT(sentence, testing::StartsWith(path + ": "));
        EXPECT_THAT(sentence, testing::HasSubstr(row.wrong));
        const std::size_t end = sentence.rfind("; ");
        EXPECT_THAT(end == sentence.npos ? "" : sentence.substr(end), testing::HasSubstr(row.right));
        EXPECT_EQ(std::count(sentence.begin(), sentence.end(), '\n'), 0);
        sentences.insert(sentence.substr(path.size()));
    }
    EXPECT_GE(sentences.size(), 25U);
}

TEST(MalformedProfiles, GoodOnesOfTheSameMakersLoad) {
    const TemporaryFolder folder;
    for (const Role role : {kMonitor, kPrinter, kProofer}) {
        const Loaded loaded = Load(ChoiceOf(role, folder.Write("good.icc", GoodBytes(role))));
        EXPECT_EQ(loaded.status, 0) << kRoles[role] << ": " << LastRefusal();
    }
}

TEST(LastRefusal, NamesWhatIsNoProfileAtAll) {
    const TemporaryFolder folder;
    const std::string large = folder.Write("large.icc", Bytes(20971521, 0));
    EXPECT_EQ(Load({large, kCMYKPrinter}).status, -50);
    EXPECT_EQ(LastRefusal(), large + ": it has 20971521 bytes; a profile of 20 MiB (20971520 bytes) at most is needed");
    EXPECT_EQ(Load({kSRGBMonitor, ""}).status, -43);
    EXPECT_EQ(LastRefusal(), "no printer is chosen; the profile of a printer is needed");
}

TEST(LastRefusal, IsThatOfChecksToo) {
    const TemporaryFolder folder;
    const std::string path = folder.Write("monitor.icc", GoodMonitor().Make());
    const Alias alias(path);
    EXPECT_EQ(ICC_ValidatePrinterAlias(alias.Get()), -170);
    EXPECT_EQ(LastRefusal(), path + ": the profile's class is 'mntr'; a printer profile (class 'prtr') for RGB or CMYK is needed");
    EXPECT_EQ(ICC_ValidateMonitorAlias(alias.Get()), 0);
    EXPECT_EQ(LastRefusal(), path + ": the profile's class is 'mntr'; a printer profile (class 'prtr') for RGB or CMYK is needed")
        << "what is accepted";
}

TEST(LastRefusal, IsOneLineWhateverTheFilesName) {
    const TemporaryFolder folder;
    Load({folder.Write("a\nline \xE4.icc", Bytes(10, 0)), kCMYKPrinter});
    EXPECT_EQ(LastRefusal(), "this is not a whole ICC profile: the data is 10 bytes long; a profile has at least 132; a whole ICC profile is needed");
    const std::string path = folder.Write("a\nline.icc", Bytes(10, 0));
    Load({path, kCMYKPrinter});
    EXPECT_THAT(LastRefusal(), testing::HasSubstr("/a?line.icc: this is not"));
}
