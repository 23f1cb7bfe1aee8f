#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "platform/Codes.h"

namespace {

std::string Characters(uint32_t code) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(code >> shift);
    return text;
}

TEST(Codes, HaveTheirFirstCharacterInTheMostSignificantByte) {
    const struct {
        uint32_t code;
        const char* characters;
    } rows[] = {
        {kMatchingQuality0, "Qua0"}, {kMatchingQuality1, "Qua1"},    {kMatchingQuality2, "Qua2"}, {kRenderingIntent0, "Rdr0"},
        {kRenderingIntent1, "Rdr1"}, {kRenderingIntent2, "Rdr2"},    {kRenderingIntent3, "Rdr3"}, {kColourSpaceRGB, "RGB "},
        {kColourSpaceCMYK, "CMYK"},  {kMatchingDataChanged, "CHNG"},
    };
    for (const auto& row : rows) EXPECT_EQ(Characters(row.code), row.characters);
}

TEST(Codes, NameTheStatuses) {
    const struct {
        int16_t status;
        int expected;
    } rows[] = {
        {kStatusDone, 0},           {kStatusNoMatchingData, 1000}, {kStatusFailed, -1},     {kStatusInputOutput, -36},
        {kStatusFileNotFound, -43}, {kStatusParameter, -50},       {kStatusNoMemory, -108}, {kStatusProfileUnsuitable, -170},
    };
    for (const auto& row : rows) EXPECT_EQ(row.status, row.expected);
}

}  // namespace
