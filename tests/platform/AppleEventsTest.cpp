#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/AppleEvents.h"
#include "platform/FourCharCode.h"

namespace {

class AppleEvents : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(AECreateList(nullptr, 0, true, &record), 0); }
    void TearDown() override { AEDisposeDesc(&record); }

    OSErr Put(const char (&key)[5], const std::string& bytes, DescType type = FourChar("TEXT")) {
        return AEPutParamPtr(&record, FourChar(key), type, bytes.data(), static_cast<Size>(bytes.size()));
    }
    std::string Get(const char (&key)[5], Size room = 100) {
        std::string bytes(static_cast<size_t>(room), '#');
        Size size = -1;
        DescType type = 0;
        const OSErr error = AEGetParamPtr(&record, FourChar(key), FourChar("TEXT"), &type, bytes.data(), room, &size);
        if (error != 0) return "error " + std::to_string(error);
        EXPECT_EQ(type, FourChar("TEXT"));
        return std::to_string(size) + ":" + bytes.substr(0, std::min(bytes.size(), static_cast<size_t>(size) + 1));
    }

    AERecord record = {typeNull, nullptr};
};

TEST_F(AppleEvents, ANewRecordIsEmpty) {
    EXPECT_EQ(record.descriptorType, DescType{typeAERecord});
    EXPECT_NE(record.dataHandle, nullptr);
    EXPECT_EQ(Get("some"), "error -1701");
}

TEST_F(AppleEvents, ParametersComeBackByTheirKeywords) {
    EXPECT_EQ(Put("one ", "1"), 0);
    EXPECT_EQ(Put("two ", "second"), 0);
    EXPECT_EQ(Get("two "), "6:second#");
    EXPECT_EQ(Get("one "), "1:1#");
    EXPECT_EQ(Get("TWO "), "error -1701");
}

TEST_F(AppleEvents, PuttingAgainReplaces) {
    Put("key ", "old and long");
    EXPECT_EQ(Put("key ", "new"), 0);
    EXPECT_EQ(Get("key "), "3:new#");
}

TEST_F(AppleEvents, AnotherTypeIsNotConverted) {
    const double real = 2.5;
    ASSERT_EQ(AEPutParamPtr(&record, FourChar("real"), typeIEEE64BitFloatingPoint, &real, sizeof real), 0);
    EXPECT_EQ(Get("real"), "error -1700");
    double read = 0.0;
    EXPECT_EQ(AEGetParamPtr(&record, FourChar("real"), typeIEEE64BitFloatingPoint, nullptr, &read, sizeof read, nullptr), 0);
    EXPECT_EQ(read, 2.5);
}

TEST_F(AppleEvents, AValueOfAnotherSizeThanItsTypesIsRefused) {
    const struct {
        DescType type;
        Size size;
        OSErr status;
    } rows[] = {
        {typeIEEE64BitFloatingPoint, 0, -1702},
        {typeIEEE64BitFloatingPoint, 4, -1702},
        {typeIEEE64BitFloatingPoint, 7, -1702},
        {typeIEEE64BitFloatingPoint, 8, 0},
        {typeIEEE64BitFloatingPoint, 9, -1702},
        {typeBoolean, 0, -1702},
        {typeBoolean, 1, 0},
        {typeBoolean, 2, -1702},
        {FourChar("TEXT"), 3, 0},
    };
    for (const auto& row : rows) {
        ASSERT_EQ(Put("key ", std::string(static_cast<size_t>(row.size), 'v'), row.type), 0);
        std::string read(16, '#');
        DescType type = 1;
        Size size = -1;
        EXPECT_EQ(AEGetParamPtr(&record, FourChar("key "), row.type, &type, read.data(), 16, &size), row.status) << row.type << " " << row.size;
        const auto written = static_cast<size_t>(row.status == 0 ? row.size : 0);
        EXPECT_EQ(read, std::string(written, 'v') + std::string(16 - written, '#')) << row.type << " " << row.size;
        EXPECT_EQ(type, row.status == 0 ? row.type : 1);
        EXPECT_EQ(size, row.status == 0 ? row.size : -1);
    }
}

TEST_F(AppleEvents, NoMoreThanTheRoomIsWritten) {
    Put("key ", "abcdef");
    EXPECT_EQ(Get("key ", 3), "6:abc");
    EXPECT_EQ(Get("key ", 0), "6:");
    EXPECT_EQ(AEGetParamPtr(&record, FourChar("key "), FourChar("TEXT"), nullptr, nullptr, 0, nullptr), 0);
}

TEST_F(AppleEvents, AParameterMayBeEmpty) {
    EXPECT_EQ(AEPutParamPtr(&record, FourChar("none"), FourChar("TEXT"), nullptr, 0), 0);
    EXPECT_EQ(Get("none"), "0:#");
}

TEST_F(AppleEvents, TheDataAreCopied) {
    std::string bytes = "before";
    ASSERT_EQ(Put("key ", bytes), 0);
    bytes.assign("after!");
    EXPECT_EQ(Get("key "), "6:before#");
}

TEST_F(AppleEvents, OnlyRecordsHoldParameters) {
    AEDescList list;
    ASSERT_EQ(AECreateList(nullptr, 0, false, &list), 0);
    EXPECT_EQ(list.descriptorType, DescType{typeAEList});
    AEDesc nothing = {typeNull, nullptr};
    for (AEDesc* const desc : {&list, &nothing}) {
        char byte = 'x';
        EXPECT_EQ(AEPutParamPtr(desc, FourChar("key "), FourChar("TEXT"), &byte, 1), errAEWrongDataType);
        EXPECT_EQ(AEGetParamPtr(desc, FourChar("key "), FourChar("TEXT"), nullptr, &byte, 1, nullptr), errAEWrongDataType);
        EXPECT_EQ(byte, 'x');
    }
    EXPECT_EQ(AEDisposeDesc(&list), 0);
}

TEST_F(AppleEvents, ImpossibleSizesAreRefused) {
    const char byte = 'x';
    EXPECT_EQ(AEPutParamPtr(&record, FourChar("key "), FourChar("TEXT"), &byte, -1), -50);
    EXPECT_EQ(AEPutParamPtr(&record, FourChar("key "), FourChar("TEXT"), nullptr, 1), -50);
    EXPECT_EQ(Get("key "), "error -1701");
}

TEST_F(AppleEvents, DisposingLeavesTheNullDescriptor) {
    Put("key ", "value");
    EXPECT_EQ(AEDisposeDesc(&record), 0);
    EXPECT_EQ(record.descriptorType, DescType{typeNull});
    EXPECT_EQ(record.dataHandle, nullptr);
    EXPECT_EQ(AEDisposeDesc(&record), 0);
}

}  // namespace
