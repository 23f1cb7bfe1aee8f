#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "calibration/MonitorCalibration.h"
#include "session/Failure.h"
#include "tests/fixtures/ChildProcess.h"
#include "tests/fixtures/DisplayBench.h"
#include "tests/fixtures/FileReferences.h"
#include "tests/fixtures/ResourceForkBytes.h"
#include "tests/fixtures/ResourceForkScript.h"
#include "tests/fixtures/SmallVolume.h"
#include "tests/fixtures/StringText.h"
#include "tests/fixtures/TemporaryFolder.h"
#include "tests/fixtures/TracedChild.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

std::vector<std::string> sNotices;

constexpr char k32Bits[] = "--------RRRRRRRRGGGGGGGGBBBBBBBB";
constexpr char k16Bits[] = "-RRRRRGGGGGBBBBB";
constexpr char kDetail[] = "Launch the 'Lumaset' application and re-calibrate the monitors.";

}  // namespace

extern "C" __attribute__((used)) void __wrap_NotifyUser(CFStringRef message, CFStringRef informative) {
    sNotices.push_back(Text(message) + "|" + Text(informative));
}

namespace {

const CalibrationRecord kSettings = {0x0102030405060708, -2, 7, 255, 3, 4, 0x7FFFFFFFFFFFFFFF};
// The same in a file.
constexpr char kSettingsText[] = "0102030405060708fffffffffffffffe07ff000000000000000300000000000000047fffffffffffffff";

/// A 3-channel 16-bit ramp of two entries, 0 and `top` in every channel.
MC_OpaqueGammaTable* NewRamp(double top) {
    MC_OpaqueGammaTable* const table = MC_CreateGammaTable(3, 2, 16);
    for (int16_t c = 0; c < 3; ++c) MC_SetGammaVal(table, c, 1, top);
    return table;
}

struct Documents : testing::Test {
    TemporaryFolder folder;

    void SetUp() override {
        unsetenv("DISPLAY");
        Bench() = DisplayBench();
        Bench().displays = {{65, k32Bits, {{0, 0}, {1920, 1080}}, {}}, {66, k16Bits, {{-1280, 40}, {1280, 1024}}, {}}};
        sNotices.clear();
        gLastError = 0;
    }
    void TearDown() override { EXPECT_EQ(CurResFile(), 0) << "a resource file was left open"; }

    FSRef Folder() const { return NewRef(folder / "."); }
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder / ".")) names.push_back(entry.path().filename());
        return names;
    }
    /// A document of the displays with these IDs, ramps of 1.0, 0.5, 0.25 ...
    std::unique_ptr<MonitorCalibration> NewDocument(const std::vector<CGDirectDisplayID>& ids) const {
        auto** const tables = static_cast<MC_OpaqueGammaTable**>(std::calloc(std::max<size_t>(ids.size(), 1), sizeof(MC_OpaqueGammaTable*)));
        for (size_t i = 0; i < ids.size(); ++i) tables[i] = NewRamp(1.0 / static_cast<double>(1 << i));
        return std::make_unique<MonitorCalibration>(static_cast<int16_t>(ids.size()), ids.data(), tables, kSettings);
    }
    void Save(const std::vector<CGDirectDisplayID>& ids, const std::string& name = "doc") const {
        const FSRef where = Folder();
        NewDocument(ids)->Save(&where, NewString(name).Get());
    }
    /// What reading a document raises, and 0 when it raises nothing.
    short ReadingRaises(const std::string& name) const {
        const FSRef file = NewRef(folder / name);
        try {
            const MonitorCalibration document(&file);
            return 0;
        } catch (long) {
            return gLastError;
        }
    }
    short SavingRaises(MonitorCalibration& document, const FSRef& where, CFStringRef name) const {
        try {
            document.Save(&where, name);
            return 0;
        } catch (long) {
            return gLastError;
        }
    }
    MonitorCalibration Read(const std::string& name = "doc") const {
        const FSRef file = NewRef(folder / name);
        return MonitorCalibration(&file);
    }
    /// A document of one 32-bit display from lines of the second writer.
    void Write(const std::string& lines) const { ASSERT_TRUE(WriteForkWithScript(folder / "doc", lines)); }
};

const std::string kRamp = "0000000000000003000200100000ffff0000ffff0000ffff";
const std::string kCals = std::string("CALS 128 0 - ") + kSettingsText + "\n";
const std::string kDisplay = "GDIN 128 0 - 001800000000043807800001\n";
const std::string kGamma = "GAMA 128 0 - " + kRamp + "\n";

TEST_F(Documents, AreMadeOfTheDisplaysAsTheyAre) {
    const auto document = NewDocument({65, 66, 99});
    EXPECT_TRUE(document->IsValid());
    EXPECT_EQ(document->NumGammaTables(), 3);
    EXPECT_EQ(document->DisplayRef(1), 66U);
    EXPECT_EQ(document->DisplayIndex(0), 1);
    EXPECT_EQ(document->DisplayIndex(1), 2);
    EXPECT_EQ(document->DisplayIndex(2), -1);
    EXPECT_EQ(MC_GetGammaVal(document->GammaTable(1), 2, 1), 32768 / 65535.0);
    EXPECT_EQ(std::memcmp(&document->GetCalibrationSettings(), &kSettings, sizeof kSettings), 0);
}

TEST_F(Documents, AreSavedAsTheResourcesThatAnyReaderExpects) {
    Save({65, 66});
    EXPECT_EQ(ReadForkWithScript(folder / "doc"), kCals +
                                                      "GDIN 128 0 - 001800000000043807800001\n"  // depth 24; 0, 0, 1080, 1920; first
                                                      "GDIN 129 0 - 000f0028fb00042800000002\n"  // depth 15; 40, -1280, 1064, 0; second
                                                      "GAMA 128 0 - " +
                                                      kRamp +
                                                      "\n"
                                                      "GAMA 129 0 - 000000000000000300020010000080000000800000008000\n"
                                                      "DPID 128 0 - 0000004100000042\n");
    EXPECT_THAT(Names(), ElementsAre("doc")) << "the private folder is gone";
}

TEST_F(Documents, AreReadAsTheyWereSaved) {
    Save({65, 66});
    MonitorCalibration document = Read();
    EXPECT_TRUE(document.IsValid());
    ASSERT_EQ(document.NumGammaTables(), 2);
    EXPECT_EQ(document.DisplayRef(0), 65U);
    EXPECT_EQ(document.DisplayRef(1), 66U);
    EXPECT_EQ(MC_GetGammaVal(document.GammaTable(0), 0, 1), 1.0);
    EXPECT_EQ(MC_GetGammaVal(document.GammaTable(1), 0, 1), 32768 / 65535.0);
    EXPECT_EQ(std::memcmp(&document.GetCalibrationSettings(), &kSettings, sizeof kSettings), 0);
    EXPECT_TRUE(document.VerifySameDevices()) << "32 is stored as 24 and 16 as 15, and read back";
    EXPECT_THAT(sNotices, IsEmpty());
}

TEST_F(Documents, KeepWhatTheyWereSavedWithWhenSavedAgain) {
    Save({65, 66});
    MonitorCalibration document = Read();
    const FSRef where = Folder();
    document.Save(&where, CFSTR("again"));
    EXPECT_EQ(ReadFile(folder / "again"), ReadFile(folder / "doc"));
}

TEST_F(Documents, WithoutDisplaysAreWhole) {
    Save({});
    MonitorCalibration document = Read();
    EXPECT_TRUE(document.IsValid());
    EXPECT_EQ(document.NumGammaTables(), 0);
    EXPECT_TRUE(document.VerifySameDevices());
    document.Install();
    EXPECT_TRUE(document.IsValid());
    EXPECT_THAT(Bench().log, IsEmpty());
}

TEST_F(Documents, TakeTheDisplaysByPositionWhereTheirIDsAreMissingOrOfTheWrongSize) {
    const struct {
        const char* ids;
        CGDirectDisplayID expected;
        const char* what;
    } rows[] = {
        {"", 66, "no list"},
        {"DPID 128 0 - 000000\n", 66, "too short"},
        {"DPID 128 0 - 0000004100000042\n", 66, "too long"},
        {"DPID 128 0 - -\n", 66, "empty"},
        {"DPID 129 0 - 00000063\n", 66, "another number"},
        {"DPID 128 0 - 00000063\n", 99, "a list of the right size"},
    };
    for (const auto& row : rows) {
        Write(kCals + "GDIN 128 0 - 000f0028fb00042800000002\n" + kGamma + row.ids);
        MonitorCalibration document = Read();
        EXPECT_TRUE(document.IsValid()) << row.what;
        EXPECT_EQ(document.DisplayRef(0), row.expected) << row.what;
    }
}

TEST_F(Documents, TakeTheSettingsFromTheFirst42BytesWhateverTheSize) {
    Write(std::string("CALS 128 0 - ") + kSettingsText + "ffff\n");
    EXPECT_EQ(std::memcmp(&Read().GetCalibrationSettings(), &kSettings, sizeof kSettings), 0) << "longer";
    Write("CALS 128 0 - 0102030405060708ff\n");
    MonitorCalibration document = Read();
    EXPECT_EQ(document.GetCalibrationSettings().setting1, 0x0102030405060708) << "shorter";
    EXPECT_EQ(document.GetCalibrationSettings().flag1, 0);
}

TEST_F(Documents, WithAMissingResourceRaiseAndCloseTheFile) {
    const FSRef other = NewRef(folder.Write("other", SmallFork()));
    const ResFileRefNum current = FSOpenResFile(&other, fsRdPerm);
    const struct {
        std::string lines;
        const char* what;
    } rows[] = {
        {kDisplay + kGamma, "no settings"},
        {kCals + "GDIN 129 0 - 001800000000043807800001\n" + kGamma, "a display under another number"},
        {kCals + kDisplay, "no ramp"},
        {kCals + kDisplay + "GAMA 129 0 - " + kRamp + "\n", "a ramp under another number"},
    };
    for (const auto& row : rows) {
        Write(row.lines);
        gLastError = 0;
        EXPECT_EQ(ReadingRaises("doc"), -108) << row.what;
        EXPECT_EQ(CurResFile(), current) << row.what;
    }
    Write(kCals + kDisplay + kGamma);
    EXPECT_EQ(ReadingRaises("doc"), 0);
    EXPECT_EQ(CurResFile(), current);
    const FSRef where = Folder();
    NewDocument({65})->Save(&where, CFSTR("saved"));
    EXPECT_EQ(CurResFile(), current) << "saving brings the earlier file back too";
    CloseResFile(current);
}

TEST_F(Documents, ThatAreNotSaneAreEmptyAndInvalid) {
    ForkBytes typeList30 = SmallFork();
    PutNumber(typeList30, SmallForkFields::kTypeListOffset, 30, 2);
    folder.Write("type list at 30", typeList30);
    folder.Write("empty", {});
    folder.Write("text", ForkBytes(100, 'x'));
    fs::create_directory(folder / "folder");
    for (const char* name : {"type list at 30", "empty", "text", "folder"}) {
        MonitorCalibration document = Read(name);
        EXPECT_FALSE(document.IsValid()) << name;
        EXPECT_EQ(document.NumGammaTables(), 0) << name;
        document.Install();
        EXPECT_THAT(Bench().log, IsEmpty()) << name;
    }
    const FSRef unfilled = {};
    EXPECT_FALSE(MonitorCalibration(&unfilled).IsValid());
}

TEST_F(Documents, AreCheckedWithTheFirstFileErrorAsTheAnswer) {
    folder.Write("sane", SmallFork());
    folder.Write("short", ForkBytes(15));
    folder.Write("text", ForkBytes(100, 'x'));
    fs::create_directory(folder / "folder");
    const struct {
        const char* name;
        OSErr status;
        bool sane;
    } rows[] = {{"sane", 0, true}, {"short", 0, false}, {"text", 0, false}, {"folder", -1302, false}};
    for (const auto& row : rows) {
        const FSRef file = NewRef(folder / row.name);
        bool sane = !row.sane;
        EXPECT_EQ(CheckResourceForkSanity(&file, &sane), row.status) << row.name;
        EXPECT_EQ(sane, row.sane) << row.name;
    }
    const FSRef gone = NewRef(folder / "sane");
    fs::remove(folder / "sane");
    bool sane = true;
    EXPECT_EQ(CheckResourceForkSanity(&gone, &sane), -43);
    EXPECT_FALSE(sane);
}

TEST_F(Documents, DamagedInAnyWayAreReadOrRefusedButNeverFollowedOutside) {
    Save({65, 66});
    const std::vector<std::uint8_t> whole = ReadFile(folder / "doc");
    int valid = 0, invalid = 0, raised = 0, round = 0;
    ForEachDamage(whole, [&](const ForkBytes& fork) {
        if (round++ % 97 != 0) return;  // the check and the parser themselves are tried with every one of them
        const FSRef file = NewRef(folder.Write("doc", fork));
        try {
            MonitorCalibration document(&file);
            ++(document.IsValid() ? valid : invalid);
            document.Install();
        } catch (long) {
            ++raised;
        }
        ASSERT_EQ(CurResFile(), 0);
    });
    EXPECT_GT(valid, 50);
    EXPECT_GT(invalid, 10);
    EXPECT_GT(raised, 10);
}

TEST_F(Documents, VerifyThatPresentDisplaysHaveTheirDepthAndSize) {
    const struct {
        const char* encoding;
        CGRect bounds;
        const char* message;
        const char* what;
    } rows[] = {
        {k32Bits, {{0, 0}, {1920, 1080}}, nullptr, "as it was"},
        {k32Bits, {{-1920, 300}, {1920, 1080}}, nullptr, "at another place"},
        {k16Bits, {{0, 0}, {1920, 1080}}, "device depth has changed (expected 32).", "another depth"},
        {"unknown", {{0, 0}, {1920, 1080}}, "device depth has changed (expected 32).", "an unknown depth"},
        {k32Bits, {{0, 0}, {1280, 1080}}, "device bounds have changed (expected 1920 x 1080).", "another width"},
        {k32Bits, {{0, 0}, {1920, 1024}}, "device bounds have changed (expected 1920 x 1080).", "another height"},
        {k16Bits, {{0, 0}, {1280, 1024}}, "device depth has changed (expected 32).", "the depth is told before the size"},
    };
    Save({65, 66});
    for (const auto& row : rows) {
        sNotices.clear();
        Bench().displays[0].encoding = row.encoding;
        Bench().displays[0].bounds = row.bounds;
        EXPECT_EQ(Read().VerifySameDevices(), row.message == nullptr) << row.what;
        if (row.message) {
            EXPECT_THAT(sNotices, ElementsAre(std::string("Couldn't install the monitor calibration because the ") + row.message + "|" + kDetail))
                << row.what;
        } else {
            EXPECT_THAT(sNotices, IsEmpty()) << row.what;
        }
    }
}

TEST_F(Documents, LoadEveryPresentDisplaysRamp) {
    Save({65, 66});
    MonitorCalibration document = Read();
    document.Install();
    EXPECT_TRUE(document.IsValid());
    EXPECT_THAT(Bench().log, ElementsAre("load 65", "load 66"));
    EXPECT_THAT(Bench().displays[0].ramp[2], ElementsAre(0.0F, 1.0F));
    EXPECT_THAT(Bench().displays[1].ramp[0], ElementsAre(0.0F, static_cast<float>(32768 / 65535.0)));
}

TEST_F(Documents, SkipADisplayThatIsNoLongerThere) {
    Save({65, 66});
    Bench().displays.erase(Bench().displays.begin());
    MonitorCalibration document = Read();
    EXPECT_TRUE(document.VerifySameDevices());
    document.Install();
    EXPECT_TRUE(document.IsValid());
    EXPECT_THAT(Bench().log, ElementsAre("load 66"));
    EXPECT_THAT(sNotices, IsEmpty());
}

TEST_F(Documents, MadeForOtherDevicesLoadNothingAndBecomeInvalid) {
    Save({65, 66});
    Bench().displays[1].bounds.size.width = 1024;
    MonitorCalibration document = Read();
    document.Install();
    EXPECT_FALSE(document.IsValid());
    EXPECT_THAT(Bench().log, IsEmpty());
    EXPECT_EQ(sNotices.size(), 1U);
    Bench().displays[1].bounds.size.width = 1280;
    document.Install();
    EXPECT_THAT(Bench().log, IsEmpty()) << "an invalid document stays so";
    EXPECT_EQ(sNotices.size(), 1U) << "and is not compared again";
}

TEST_F(Documents, RaiseWhatLoadingARampAnswers) {
    Save({65});
    MonitorCalibration document = Read();
    Bench().loadError = 1001;
    EXPECT_THROW(document.Install(), long);
    EXPECT_EQ(gLastError, 1001);
    EXPECT_THROW(document.InstallGamma(65, nullptr), long);
    EXPECT_EQ(gLastError, -50);
    Write(kCals + kDisplay + "GAMA 128 0 - 00\n");
    MonitorCalibration withoutRamp = Read();
    EXPECT_TRUE(withoutRamp.IsValid());
    EXPECT_EQ(withoutRamp.GammaTable(0), nullptr) << "a resource without a whole ramp";
    gLastError = 0;
    EXPECT_THROW(withoutRamp.Install(), long);
    EXPECT_EQ(gLastError, -50);
}

TEST_F(Documents, WithARampThatNoDisplayTakesLoadNothing) {
    const struct {
        const char* what;
        std::string ramp;
    } rows[] = {
        {"no entry", "000000000000000300000010"},
        {"one entry", "000000000000000300010010" + std::string(12, '0')},
        {"one channel", "000000000000000101000008" + std::string(512, '0')},
        {"two channels", "000000000000000200020010" + std::string(16, '0')},
        {"300 entries", "0000000000000003012c0010" + std::string(3600, '0')},
        {"257 entries", "000000000000000301010008" + std::string(1542, '0')},
        {"not whole", "000000000000000301000010"},
    };
    for (const auto& row : rows) {
        Write(kCals + kDisplay + "GDIN 129 0 - 000f0028fb00042800000002\n" + kGamma + "GAMA 129 0 - " + row.ramp +
              "\nDPID 128 0 - 0000004100000042\n");
        MonitorCalibration document = Read();
        ASSERT_EQ(document.NumGammaTables(), 2) << row.what;
        gLastError = 0;
        EXPECT_THROW(document.Install(), long) << row.what;
        EXPECT_EQ(gLastError, -50) << row.what;
        EXPECT_THAT(Bench().log, IsEmpty()) << row.what;
    }
    // Of one that is not there nothing is asked.
    Bench().displays.pop_back();
    MonitorCalibration document = Read();
    document.Install();
    EXPECT_THAT(Bench().log, ElementsAre("load 65"));
}

TEST_F(Documents, ThatADisplayRefusesLeaveAllRampsAsTheyWere) {
    Save({65, 66});
    for (BenchDisplay& display : Bench().displays) {
        for (auto& ramp : display.ramp) ramp = std::vector<float>(1024, 0.3F);
    }
    Bench().displays[0].ramp[1][513] = 0.7F;
    const auto before = Bench().displays;
    Bench().loadError = 1001;
    Bench().refusing = 66;
    MonitorCalibration document = Read();
    EXPECT_THROW(document.Install(), long);
    EXPECT_EQ(gLastError, 1001);
    EXPECT_THAT(Bench().log, ElementsAre("load 65", "load 65"));
    for (size_t i = 0; i < 2; ++i) {
        for (int c = 0; c < 3; ++c) EXPECT_EQ(Bench().displays[i].ramp[c], before[i].ramp[c]) << i << " " << c;
    }
}

TEST_F(Documents, TellWhatTheDisplaysWere) {
    Save({65, 66});
    Bench().displays.clear();
    const MonitorCalibration document = Read();
    EXPECT_EQ(document.StoredInfo(0).depth, 32);
    EXPECT_EQ(document.StoredInfo(1).depth, 16);
    EXPECT_EQ(document.StoredInfo(1).left, -1280);
    EXPECT_EQ(document.StoredInfo(1).index, 2);
}

TEST_F(Documents, AreNotSavedWithoutAFolderAProperNameOrARamp) {
    const auto document = NewDocument({65});
    EXPECT_EQ(SavingRaises(*document, Folder(), NewString(std::string(256, 'n')).Get()), -43) << "a name of 256 characters";
    EXPECT_EQ(SavingRaises(*document, Folder(), NewString(std::string(255, 'n')).Get()), 0) << "the longest name";
    EXPECT_EQ(SavingRaises(*document, FSRef{}, CFSTR("doc")), -36) << "no folder";
    EXPECT_EQ(SavingRaises(*document, Folder(), nullptr), -36) << "no name";
    EXPECT_EQ(SavingRaises(*document, Folder(), CFSTR("no folder/doc")), -36) << "a folder that is not there";
    const FSRef file = NewRef(folder.Write("file", ForkBytes(1)));
    EXPECT_EQ(SavingRaises(*document, file, CFSTR("doc")), -36) << "a file for a folder";
    auto** const tables = static_cast<MC_OpaqueGammaTable**>(std::calloc(1, sizeof(MC_OpaqueGammaTable*)));
    const CGDirectDisplayID id = 65;
    MonitorCalibration withoutRamp(1, &id, tables, kSettings);
    Save({66});
    const auto before = ReadFile(folder / "doc");
    EXPECT_EQ(SavingRaises(withoutRamp, Folder(), CFSTR("doc")), -108) << "no ramp";
    EXPECT_EQ(ReadFile(folder / "doc"), before);
    EXPECT_EQ(Names().size(), 3U) << "nothing but the two documents and the file";
}

TEST_F(Documents, NeverReplaceAFolder) {
    fs::create_directories(folder / "inner/part");
    fs::create_directory_symlink("inner", folder / "link");
    WriteFile(folder / "inner/file", "x");
    const auto document = NewDocument({65});
    const FSRef inner = NewRef(folder / "inner");
    EXPECT_EQ(SavingRaises(*document, inner, CFSTR("")), -36) << "no name but the folder's own";
    EXPECT_EQ(SavingRaises(*document, inner, CFSTR(".")), -36);
    EXPECT_EQ(SavingRaises(*document, inner, CFSTR("..")), -36);
    EXPECT_EQ(SavingRaises(*document, inner, CFSTR("part")), -36);
    EXPECT_EQ(SavingRaises(*document, Folder(), CFSTR("inner")), -36);
    EXPECT_EQ(SavingRaises(*document, Folder(), CFSTR("link")), -36);
    EXPECT_TRUE(fs::is_directory(folder / "inner/part"));
    EXPECT_TRUE(fs::is_regular_file(folder / "inner/file"));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "inner"), {}), 2);
    EXPECT_THAT(Names(), UnorderedElementsAre("inner", "link"));
}

TEST_F(Documents, ThatAreLinksStayLinks) {
    fs::create_directory(folder / "far");
    fs::create_symlink("far/behind", folder / "doc");
    for (const CGDirectDisplayID id : {65U, 66U}) {
        Save({id});
        EXPECT_TRUE(fs::is_symlink(folder / "doc"));
        ASSERT_TRUE(fs::exists(folder / "far/behind"));
        EXPECT_EQ(Read("far/behind").DisplayRef(0), id);
    }
    EXPECT_THAT(Names(), UnorderedElementsAre("far", "doc"));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "far"), {}), 1);
}

TEST_F(Documents, LeaveNothingInMemoryBehindThem) {
    const auto saved = [&](int times) {
        for (int i = 0; i < times; ++i) Save({65});
        return mallinfo2().uordblks;
    };
    const std::size_t before = saved(20);
    EXPECT_LT(saved(100), before + 2000) << "a sanitiser's allocator counts nothing";
}

TEST_F(Documents, AreNotSavedIntoAReadOnlyFolder) {
    Save({65});
    const auto before = ReadFile(folder / "doc");
    fs::permissions(folder / "doc", fs::perms::all);
    fs::permissions(folder / ".", fs::perms::owner_read | fs::perms::owner_exec | fs::perms::others_read | fs::perms::others_exec);
    const auto save = [&] { return std::to_string(SavingRaises(*NewDocument({66}), Folder(), CFSTR("doc"))); };
    EXPECT_EQ(geteuid() == 0 ? AsNobody(save) : InAChild(save), "-36");
    EXPECT_EQ(ReadFile(folder / "doc"), before);
    fs::permissions(folder / ".", fs::perms::owner_all);
}

TEST_F(Documents, AreLeftAsTheyWereByAFullVolume) {
    fs::create_directory(folder / "volume");
    const std::string answer = OnASmallVolume(folder / "volume", "64k", [&]() -> std::string {
        const FSRef where = NewRef(folder / "volume");
        NewDocument({65})->Save(&where, CFSTR("doc"));
        const auto before = ReadFile(folder / "volume/doc");
        std::ofstream(folder / "volume/filling") << std::string(100000, 'x');
        const short raised = SavingRaises(*NewDocument({66}), where, CFSTR("doc"));
        const bool same = ReadFile(folder / "volume/doc") == before;
        const auto count = std::distance(fs::directory_iterator(folder / "volume"), {});
        return std::to_string(raised) + (same ? " same " : " other ") + std::to_string(count);
    });
    if (answer == kNoVolume) GTEST_SKIP() << "mounting a small volume is not permitted here";
    EXPECT_EQ(answer, "-36 same 2");
}

TEST_F(Documents, AreTheOldOneOrTheNewOneWhereverSavingIsCutShort) {
    Save({65});
    const auto old = ReadFile(folder / "doc");
    Save({66, 65}, "new");
    const auto fresh = ReadFile(folder / "new");
    fs::remove(folder / "new");
    ASSERT_NE(old, fresh);
    bool killed = true;
    int olds = 0, news = 0;
    for (int count = 1; killed; ++count) {
        folder.Write("doc", old);
        const TracedEnd end = RunAndKillAtSystemCall(
            count,
            [&] {
                Save({66, 65});
                return 0;
            },
            &killed);
        if (!end.traced) GTEST_SKIP() << "tracing is not permitted here";
        const auto found = ReadFile(folder / "doc");
        ASSERT_TRUE(found == old || found == fresh) << "half a document after system call " << count;
        ++(found == old ? olds : news);
        ASSERT_LT(count, 1000);
        EXPECT_EQ(end.status, killed ? -1 : 0);
        for (const std::string& name : Names()) {
            if (name != "doc") fs::remove_all(folder / name);
        }
    }
    EXPECT_GT(olds, 10);
    EXPECT_GT(news, 1) << "the new one stands before the private folder is removed";
}

struct UsersDocument : Documents {
    void SetUp() override {
        Documents::SetUp();
        setenv("XDG_CONFIG_HOME", (folder / ".").c_str(), 1);
    }
    void TearDown() override {
        unsetenv("XDG_CONFIG_HOME");
        Documents::TearDown();
    }
};

TEST_F(UsersDocument, IsLoadedAfterTheSystemRamps) {
    Save({65, 66}, "Orlo Monitor Calibration");
    InstallMonitorCalibration();
    EXPECT_THAT(Bench().log, ElementsAre("restore", "load 65", "load 66"));
}

TEST_F(UsersDocument, LeavesTheSystemRampsWhenItIsMissingOrDamaged) {
    InstallMonitorCalibration();
    EXPECT_THAT(Bench().log, ElementsAre("restore")) << "no document";
    setenv("XDG_CONFIG_HOME", (folder / "no folder").c_str(), 1);
    InstallMonitorCalibration();
    EXPECT_FALSE(fs::exists(folder / "no folder")) << "the folder is not made";
    setenv("XDG_CONFIG_HOME", (folder / ".").c_str(), 1);
    folder.Write("Orlo Monitor Calibration", ForkBytes(100, 'x'));
    InstallMonitorCalibration();
    ASSERT_TRUE(WriteForkWithScript(folder / "Orlo Monitor Calibration", kDisplay + kGamma));
    InstallMonitorCalibration();
    EXPECT_THAT(Bench().log, ElementsAre("restore", "restore", "restore", "restore"));
    EXPECT_THAT(sNotices, IsEmpty());
}

TEST_F(UsersDocument, ForOtherDevicesIsToldOfOnceAndNotLoaded) {
    Save({65, 66}, "Orlo Monitor Calibration");
    for (BenchDisplay& display : Bench().displays) display.bounds.size.width = 800;
    InstallMonitorCalibration();
    EXPECT_THAT(Bench().log, ElementsAre("restore"));
    EXPECT_EQ(sNotices.size(), 1U);
}

}  // namespace
