#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>

#include "platform/Carbon.h"
#include "platform/FourCharCode.h"
#include "tests/fixtures/ChildProcess.h"
#include "tests/fixtures/FileReferences.h"
#include "tests/fixtures/ResourceForkBytes.h"
#include "tests/fixtures/ResourceForkScript.h"
#include "tests/fixtures/TemporaryFolder.h"

namespace {

constexpr ResType kABCD = FourChar("ABCD");
constexpr ResType kEFGH = FourChar("EFGH");

struct ResourceFiles : testing::Test {
    TemporaryFolder folder;
    HFSUniStr255 forkName = {};

    void SetUp() override { ASSERT_EQ(FSGetResourceForkName(&forkName), 0); }
    void TearDown() override { EXPECT_EQ(CurResFile(), 0) << "a file was left open"; }

    OSErr Create(const std::u16string& text, FSRef* file) const {
        const FSRef parent = NewRef(folder / ".");
        return FSCreateResourceFile(&parent, text.size(), reinterpret_cast<const UniChar*>(text.data()), 0, nullptr, forkName.length,
                                    forkName.unicode, file, nullptr);
    }
    FSRef Created(const std::u16string& text) const {
        FSRef file = {};
        EXPECT_EQ(Create(text, &file), 0);
        return file;
    }
    FSRef Written(const std::string& name, const ForkBytes& bytes) const { return NewRef(folder.Write(name, bytes)); }
};

Handle NewHandleWith(const std::string& bytes) {
    const Handle handle = NewHandle(static_cast<Size>(bytes.size()));
    std::memcpy(*handle, bytes.data(), bytes.size());
    return handle;
}

std::string Text(Handle handle) {
    return handle ? std::string(*handle, static_cast<size_t>(GetHandleSize(handle))) : "(null)";
}

OSErr Add(const std::string& bytes, ResType type, ResID id, const std::string& name = "") {
    const std::string pascal = static_cast<char>(name.size()) + name;
    AddResource(NewHandleWith(bytes), type, id, reinterpret_cast<ConstStr255Param>(pascal.data()));
    return ResError();
}

std::string Get(ResType type, ResID id) {
    const Handle resource = Get1Resource(type, id);
    return resource ? Text(resource) : "(" + std::to_string(ResError()) + ")";
}

TEST_F(ResourceFiles, AreMadeWithoutResources) {
    const FSRef file = Created(u"new");
    EXPECT_EQ(PathOf(file), std::filesystem::canonical(folder / "new"));
    EXPECT_EQ(ReadForkWithScript(folder / "new"), "");
    const ResFileRefNum opened = FSOpenResFile(&file, fsRdPerm);
    ASSERT_GT(opened, 0);
    EXPECT_EQ(Count1Resources(kABCD), 0);
    EXPECT_EQ(Get(kABCD, 128), "(-192)");
    CloseResFile(opened);
}

TEST_F(ResourceFiles, AreMadeOnlyUnderNamesThatAFileCanHave) {
    const struct {
        std::u16string name;
        OSErr status;
        const char* what;
    } rows[] = {
        {u"", -37, "no name"},
        {u".", -37, "the folder itself"},
        {u"..", -37, "the folder above"},
        {u"a/b", -37, "a slash"},
        {std::u16string(u"a\0b", 3), -37, "a zero character"},
        {u"\xD800", -37, "half a character"},
        {std::u16string(256, u'x'), -37, "too many characters"},
        {std::u16string(200, u'\u00E9'), -37, "too many bytes"},
        {std::u16string(255, u'x'), 0, "the longest name"},
        {u"Orlo Monitor Calibration \u00E9", 0, "blanks and letters"},
        {u"Orlo Monitor Calibration \u00E9", -48, "the same name again"},
    };
    for (const auto& row : rows) {
        FSRef file = {};
        EXPECT_EQ(Create(row.name, &file), row.status) << row.what;
    }
    const FSRef parent = NewRef(folder / ".");
    const UniChar name[] = {'n'};
    EXPECT_EQ(FSCreateResourceFile(&parent, 1, name, 1, nullptr, forkName.length, forkName.unicode, nullptr, nullptr), -50);
    EXPECT_EQ(FSCreateResourceFile(&parent, 1, name, 0, nullptr, 1, name, nullptr, nullptr), -50);
    EXPECT_EQ(FSCreateResourceFile(&parent, 1, name, 0, nullptr, forkName.length, forkName.unicode, nullptr, nullptr), 0);
}

TEST_F(ResourceFiles, KeepWhatIsAdded) {
    const FSRef file = Created(u"doc");
    const ResFileRefNum opened = FSOpenResFile(&file, fsRdWrPerm);
    ASSERT_GT(opened, 0);
    EXPECT_EQ(CurResFile(), opened) << "opening makes a file current";
    EXPECT_EQ(Add("hello", kABCD, 128), 0);
    EXPECT_EQ(Add("", kEFGH, -7, "empty"), 0);
    EXPECT_EQ(Add(std::string(70000, 'x'), kABCD, 129, std::string(255, 'n')), 0);
    EXPECT_EQ(Count1Resources(kABCD), 2);
    EXPECT_EQ(Get(kABCD, 128), "hello") << "before it is written";
    CloseResFile(opened);
    EXPECT_EQ(ResError(), 0);
    EXPECT_EQ(CurResFile(), 0);

    const ResFileRefNum again = FSOpenResFile(&file, fsRdPerm);
    ASSERT_GT(again, 0);
    EXPECT_EQ(Count1Resources(kABCD), 2);
    EXPECT_EQ(Count1Resources(kEFGH), 1);
    EXPECT_EQ(Get(kABCD, 128), "hello");
    EXPECT_EQ(Get(kABCD, 129), std::string(70000, 'x'));
    EXPECT_EQ(Get(kEFGH, -7), "");
    EXPECT_EQ(Get(kEFGH, 128), "(-192)");
    CloseResFile(again);
}

TEST_F(ResourceFiles, KeepTheirOldResourcesWhenNewOnesAreAdded) {
    const FSRef file = Written("doc", SmallFork());
    const ResFileRefNum opened = FSOpenResFile(&file, fsRdWrPerm);
    EXPECT_EQ(Add("9", kEFGH, 5), 0);
    CloseResFile(opened);
    EXPECT_EQ(ReadForkWithScript(folder / "doc"),
              "ABCD 128 0 6f6e65 3132333435\n"
              "ABCD 129 0 - -\n"
              "EFGH -1 0 - 363738\n"
              "EFGH 5 0 - 39\n");
}

TEST_F(ResourceFiles, AreReadByASecondReader) {
    const FSRef file = Created(u"doc");
    const ResFileRefNum opened = FSOpenResFile(&file, fsRdWrPerm);
    Add("\x01\x02", kEFGH, 32767, "caf\xC3\xA9");
    Add("abc", kABCD, 128);
    Add("\xFF", kEFGH, -32768);
    CloseResFile(opened);
    EXPECT_EQ(ReadForkWithScript(folder / "doc"),
              "EFGH 32767 0 636166c3a9 0102\n"
              "EFGH -32768 0 - ff\n"
              "ABCD 128 0 - 616263\n");
}

TEST_F(ResourceFiles, OfASecondWriterAreRead) {
    ASSERT_TRUE(WriteForkWithScript(folder / "doc",
                                    "ABCD 128 32 6e 616263\n"
                                    "EFGH 0 0 - -\n"
                                    "ABCD -5 0 6f6e65 00ff\n"));
    const FSRef file = NewRef(folder / "doc");
    const ResFileRefNum opened = FSOpenResFile(&file, fsRdPerm);
    ASSERT_GT(opened, 0);
    EXPECT_EQ(Count1Resources(kABCD), 2);
    EXPECT_EQ(Get(kABCD, 128), "abc");
    EXPECT_EQ(Get(kABCD, -5), std::string("\0\xFF", 2));
    EXPECT_EQ(Get(kEFGH, 0), "");
    CloseResFile(opened);
}

TEST_F(ResourceFiles, HandOutOneHandleForAResourceUntilItIsReleased) {
    const FSRef file = Written("doc", SmallFork());
    const ResFileRefNum opened = FSOpenResFile(&file, fsRdPerm);
    const Handle first = Get1Resource(kABCD, 128);
    EXPECT_EQ(Get1Resource(kABCD, 128), first);
    ReleaseResource(first);
    EXPECT_EQ(ResError(), 0);
    EXPECT_EQ(Get(kABCD, 128), "12345");
    ReleaseResource(nullptr);
    EXPECT_EQ(ResError(), -192);
    const Handle stranger = NewHandle(1);
    ReleaseResource(stranger);
    EXPECT_EQ(ResError(), -192);
    DisposeHandle(stranger);
    CloseResFile(opened);
}

TEST_F(ResourceFiles, KeepAReleasedResourceThatIsNotWrittenYet) {
    const FSRef file = Created(u"doc");
    const ResFileRefNum opened = FSOpenResFile(&file, fsRdWrPerm);
    Add("abc", kABCD, 128);
    ReleaseResource(Get1Resource(kABCD, 128));
    EXPECT_EQ(ResError(), 0);
    EXPECT_EQ(Get(kABCD, 128), "abc");
    CloseResFile(opened);
    EXPECT_EQ(ReadForkWithScript(folder / "doc"), "ABCD 128 0 - 616263\n");
}

TEST_F(ResourceFiles, RefuseAResourceThatCannotBeAdded) {
    const FSRef file = Written("doc", SmallFork());
    const Handle data = NewHandleWith("x");
    AddResource(data, kABCD, 1, nullptr);
    EXPECT_EQ(ResError(), -193) << "no current file";
    const ResFileRefNum reading = FSOpenResFile(&file, fsRdPerm);
    AddResource(data, kABCD, 1, nullptr);
    EXPECT_EQ(ResError(), -194) << "a file open for reading";
    const ResFileRefNum writing = FSOpenResFile(&file, fsRdWrPerm);
    AddResource(nullptr, kABCD, 1, nullptr);
    EXPECT_EQ(ResError(), -194) << "no handle";
    AddResource(data, kABCD, 1, nullptr);
    EXPECT_EQ(ResError(), 0);
    AddResource(data, kABCD, 2, nullptr);
    EXPECT_EQ(ResError(), -194) << "a resource already";
    CloseResFile(writing);
    CloseResFile(reading);
}

TEST_F(ResourceFiles, FollowOneAnotherAsTheCurrentOne) {
    const FSRef a = Written("a", SmallFork()), b = Written("b", SmallFork());
    const ResFileRefNum first = FSOpenResFile(&a, fsRdPerm), second = FSOpenResFile(&b, fsRdPerm);
    EXPECT_NE(first, second);
    EXPECT_EQ(CurResFile(), second);
    UseResFile(first);
    EXPECT_EQ(CurResFile(), first);
    UseResFile(12345);
    EXPECT_EQ(ResError(), -193);
    EXPECT_EQ(CurResFile(), first);
    UseResFile(0);
    EXPECT_EQ(CurResFile(), 0);
    EXPECT_EQ(Count1Resources(kABCD), 0);
    EXPECT_EQ(ResError(), -193);
    EXPECT_EQ(Get(kABCD, 128), "(-193)");
    UseResFile(second);
    CloseResFile(second);
    EXPECT_EQ(CurResFile(), first) << "the one opened last among those still open";
    CloseResFile(second);
    EXPECT_EQ(ResError(), -193) << "closed already";
    CloseResFile(first);
}

TEST_F(ResourceFiles, AreOpenedOnlyWhenTheyAreWholePlainFiles) {
    std::filesystem::create_directory(folder / "sub");
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    ForkBytes lists = SmallFork();
    PutNumber(lists, SmallForkFields::kTypes + 4, 100, 2);
    const struct {
        FSRef file;
        SInt8 permissions;
        OSErr status;
        const char* what;
    } rows[] = {
        {Written("empty", {}), fsRdPerm, -39, "an empty file"},
        {Written("short", ForkBytes(15)), fsRdPerm, -39, "less than a header"},
        {Written("zeros", ForkBytes(16)), fsRdPerm, -199, "no map"},
        {Written("text", ForkBytes(100, 'x')), fsRdPerm, -199, "text"},
        {Written("lists", lists), fsRdWrPerm, -199, "lists past the map"},
        {NewRef(folder / "sub"), fsRdPerm, -1302, "a folder"},
        {NewRef(folder / "pipe"), fsRdPerm, -1302, "a pipe"},
        {Written("whole", SmallFork()), 0, -54, "no permission that there is"},
        {FSRef{}, fsRdPerm, -50, "a reference that was never filled"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FSOpenResFile(&row.file, row.permissions), -1) << row.what;
        EXPECT_EQ(ResError(), row.status) << row.what;
        EXPECT_EQ(CurResFile(), 0) << row.what;
    }
    EXPECT_EQ(FSOpenResFile(nullptr, fsRdPerm), -1);
    EXPECT_EQ(ResError(), -50);
}

TEST_F(ResourceFiles, RefuseAResourceWhoseLengthLeadsOutside) {
    for (const std::uint32_t length : {7U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        ForkBytes fork = SmallFork();
        PutNumber(fork, SmallForkFields::kData + 13, length, 4);
        const FSRef file = Written("doc", fork);
        const ResFileRefNum opened = FSOpenResFile(&file, fsRdPerm);
        ASSERT_GT(opened, 0);
        EXPECT_EQ(Get(kEFGH, -1), length == 7 ? std::string("678\0\0\0\0", 7) : "(-36)") << length;
        CloseResFile(opened);
    }
    ForkBytes fork = SmallFork();
    PutNumber(fork, SmallForkFields::kReferences + 5, SmallForkFields::kDataLength - 3, 3);
    const FSRef file = Written("doc", fork);
    const ResFileRefNum opened = FSOpenResFile(&file, fsRdPerm);
    EXPECT_EQ(Get(kABCD, 128), "(-36)") << "no room for its length";
    CloseResFile(opened);
}

TEST_F(ResourceFiles, AnswerAFailedWriteOnClosing) {
    const FSRef file = Written("doc", SmallFork());
    EXPECT_EQ(InAChild([&]() -> std::string {
                  std::signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit = {200, 200};
                  if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return "no limit";
                  const ResFileRefNum opened = FSOpenResFile(&file, fsRdWrPerm);
                  Add(std::string(1000, 'x'), kABCD, 1);
                  CloseResFile(opened);
                  return std::to_string(ResError());
              }),
              "-36");
}

TEST_F(ResourceFiles, RefuseMoreThanTheirOffsetsCanTell) {
    const FSRef file = Created(u"doc");
    const ResFileRefNum opened = FSOpenResFile(&file, fsRdWrPerm);
    EXPECT_EQ(Add(std::string(1 << 24, 'x'), kABCD, 1), 0);
    CloseResFile(opened);
    EXPECT_EQ(ResError(), -194);
    EXPECT_EQ(ReadForkWithScript(folder / "doc"), "") << "the file is as it was";
}

TEST_F(ResourceFiles, DamagedInAnyWayNeverLeadAReaderOutside) {
    int opened = 0;
    ForEachDamage(SmallFork(), [&, round = 0](const ForkBytes& fork) mutable {
        if (round++ % 64 != 0) return;  // the parser itself is tried with every one of them
        const FSRef file = Written("doc", fork);
        const ResFileRefNum number = FSOpenResFile(&file, fsRdPerm);
        if (number < 1) return;
        ++opened;
        for (const ResType type : {kABCD, kEFGH}) {
            for (const ResID id : {ResID{128}, ResID{129}, ResID{-1}}) Get1Resource(type, id);
        }
        CloseResFile(number);
    });
    EXPECT_GT(opened, 50);
}

TEST_F(ResourceFiles, AreBothForksOfAPlainFile) {
    const FSRef file = Written("doc", SmallFork());
    FSIORefNum number = -1;
    ASSERT_EQ(FSOpenFork(&file, forkName.length, forkName.unicode, fsRdPerm, &number), 0);
    SInt64 size = 0;
    EXPECT_EQ(FSGetForkSize(number, &size), 0);
    EXPECT_EQ(size, static_cast<SInt64>(SmallFork().size()));
    FSCloseFork(number);
    EXPECT_EQ(FSGetResourceForkName(nullptr), -50);
}

TEST_F(ResourceFiles, AreFoundByFolderAndName) {
    const FSRef parent = NewRef(folder / ".");
    Written("doc", SmallFork());
    const struct {
        std::u16string name;
        OSErr status;
    } rows[] = {{u"doc", 0}, {u"other", -43}, {u"", -37}, {u"doc/..", -37}, {std::u16string(256, u'x'), -37}};
    for (const auto& row : rows) {
        FSRef found = {};
        EXPECT_EQ(FSMakeFSRefUnicode(&parent, row.name.size(), reinterpret_cast<const UniChar*>(row.name.data()), 0, &found), row.status);
        if (row.status == 0) {
            EXPECT_EQ(PathOf(found), std::filesystem::canonical(folder / "doc"));
        }
    }
    EXPECT_EQ(FSMakeFSRefUnicode(&parent, 1, nullptr, 0, nullptr), -50);
}

TEST_F(ResourceFiles, StandInThePreferencesFolderOfTheUser) {
    setenv("XDG_CONFIG_HOME", (folder / "config").c_str(), 1);
    FSRef found = {};
    EXPECT_EQ(FSFindFolder(kUserDomain, kPreferencesFolderType, false, &found), -43) << "not made yet";
    EXPECT_EQ(FSFindFolder(kUserDomain, kPreferencesFolderType, true, &found), 0);
    EXPECT_EQ(PathOf(found), std::filesystem::canonical(folder / "config"));
    EXPECT_EQ(FSFindFolder(kUserDomain, kPreferencesFolderType, false, &found), 0);
    EXPECT_EQ(FSFindFolder(-32766, kPreferencesFolderType, false, &found), -35);
    EXPECT_EQ(FSFindFolder(kUserDomain, FourChar("trsh"), false, &found), -43);
    EXPECT_EQ(FSFindFolder(kUserDomain, kPreferencesFolderType, false, nullptr), -50);
    setenv("XDG_CONFIG_HOME", "relative", 1);
    setenv("HOME", (folder / "home").c_str(), 1);
    EXPECT_EQ(FSFindFolder(kUserDomain, kPreferencesFolderType, true, &found), 0);
    EXPECT_EQ(PathOf(found), std::filesystem::canonical(folder / "home/.config"));
    unsetenv("XDG_CONFIG_HOME");
}

}  // namespace
