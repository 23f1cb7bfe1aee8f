// The program is linked so that the reading of parameters passes through here.

#include <gtest/gtest.h>

#include <cstring>
#include <tuple>
#include <vector>

#include "appearance/AppearanceDescriptor.h"
#include "platform/FourCharCode.h"

namespace {

/// The parameter that is handed out with too few bytes, as a system may that does not compare sizes; 0: none.
AEKeyword sShort = 0;

}  // namespace

extern "C" {

OSErr __real_AEGetParamPtr(const AERecord* record, AEKeyword keyword, DescType desiredType, DescType* actualType, void* data, Size maximumSize,
                           Size* actualSize);
OSErr __wrap_AEGetParamPtr(const AERecord* record, AEKeyword keyword, DescType desiredType, DescType* actualType, void* data, Size maximumSize,
                           Size* actualSize);

OSErr __wrap_AEGetParamPtr(const AERecord* record, AEKeyword keyword, DescType desiredType, DescType* actualType, void* data, Size maximumSize,
                           Size* actualSize) {
    if (keyword != sShort) return __real_AEGetParamPtr(record, keyword, desiredType, actualType, data, maximumSize, actualSize);
    const Size size = maximumSize / 2;
    std::memset(data, 'x', static_cast<size_t>(size));
    if (actualSize) *actualSize = size;
    return 0;
}

}  // extern "C"

namespace {

using Fields = std::tuple<double, double, double, double, bool>;
const Fields kDefaults = {-0.03, 1.0, 0.0, 0.0, false};

Fields Values(const ViewingConditions& c) {
    return {c.flare, c.contrast, c.aOffset, c.bOffset, c.usePrinter != 0};
}

class Descriptor {
public:
    Descriptor() = default;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (desc.dataHandle) AEDisposeDesc(&desc);
    }
    AEDesc desc = {typeNull, nullptr};
};

/// One parameter to put, in place of making the whole.
struct Parameter {
    AEKeyword keyword;
    DescType type;
    double real;
};

const std::vector<Parameter> kAll = {{FourChar("flar"), typeIEEE64BitFloatingPoint, 0.5},
                                     {FourChar("cont"), typeIEEE64BitFloatingPoint, 2.0},
                                     {FourChar("aOff"), typeIEEE64BitFloatingPoint, -7.0},
                                     {FourChar("bOff"), typeIEEE64BitFloatingPoint, 9.0},
                                     {FourChar("useP"), typeBoolean, 1.0}};

void Put(Descriptor* descriptor, const std::vector<Parameter>& parameters) {
    ASSERT_EQ(AECreateList(nullptr, 0, true, &descriptor->desc), 0);
    for (const Parameter& parameter : parameters) {
        const Boolean flag = parameter.real != 0;
        const bool isFlag = parameter.type == typeBoolean;
        const void* const value = isFlag ? static_cast<const void*>(&flag) : &parameter.real;
        ASSERT_EQ(AEPutParamPtr(&descriptor->desc, parameter.keyword, parameter.type, value, isFlag ? 1 : 8), 0);
    }
}

TEST(AppearanceDescriptor, MadeRecordsHoldTheFiveParametersInTheirTypes) {
    const ViewingConditions conditions = {0.25, 1.5, -12.0, 34.5, true};
    Descriptor made;
    made.desc = {12345, nullptr};
    ASSERT_EQ(MakeAppearanceDescriptor(&conditions, &made.desc), 0);
    EXPECT_EQ(made.desc.descriptorType, static_cast<DescType>(typeAERecord));
    const struct {
        AEKeyword keyword;
        double expected;
    } kReals[] = {{FourChar("flar"), 0.25}, {FourChar("cont"), 1.5}, {FourChar("aOff"), -12.0}, {FourChar("bOff"), 34.5}};
    for (const auto& row : kReals) {
        DescType type = 0;
        double value = 0;
        Size size = 0;
        EXPECT_EQ(AEGetParamPtr(&made.desc, row.keyword, FourChar("doub"), &type, &value, sizeof value, &size), 0);
        EXPECT_EQ(std::make_tuple(type, value, size), std::make_tuple(FourChar("doub"), row.expected, Size{8}));
    }
    DescType type = 0;
    Boolean flag = 0;
    Size size = 0;
    EXPECT_EQ(AEGetParamPtr(&made.desc, FourChar("useP"), FourChar("bool"), &type, &flag, sizeof flag, &size), 0);
    EXPECT_EQ(std::make_tuple(type, int{flag}, size), std::make_tuple(FourChar("bool"), 1, Size{1}));
}

TEST(AppearanceDescriptor, WhatIsMadeComesBack) {
    for (const ViewingConditions conditions : {ViewingConditions{-0.03, 1, 0, 0, false}, ViewingConditions{0.25, 1.5, -12, 34.5, true},
                                               ViewingConditions{1e300, -1e-300, 0, -0.5, true}}) {
        Descriptor made;
        ASSERT_EQ(MakeAppearanceDescriptor(&conditions, &made.desc), 0);
        ViewingConditions back = {9, 9, 9, 9, true};
        EXPECT_EQ(UnpackAppearanceDescriptor(&made.desc, &back), 0);
        EXPECT_EQ(Values(back), Values(conditions));
    }
}

TEST(AppearanceDescriptor, ReadingStopsAtTheFirstErrorAndLeavesDefaultsBehindIt) {
    const Fields read[] = {kDefaults, {0.5, 1, 0, 0, false}, {0.5, 2, 0, 0, false}, {0.5, 2, -7, 0, false}, {0.5, 2, -7, 9, false}};
    for (size_t failing = 0; failing < kAll.size(); ++failing) {
        for (const bool isMissing : {true, false}) {
            SCOPED_TRACE(std::to_string(failing) + (isMissing ? " missing" : " of another type"));
            std::vector<Parameter> parameters = kAll;
            if (isMissing) {
                parameters.erase(parameters.begin() + static_cast<std::ptrdiff_t>(failing));
            } else {
                parameters[failing].type = FourChar("text");
            }
            Descriptor descriptor;
            Put(&descriptor, parameters);
            ViewingConditions result = {9, 9, 9, 9, true};
            EXPECT_EQ(UnpackAppearanceDescriptor(&descriptor.desc, &result), isMissing ? errAEDescNotFound : errAECoercionFail);
            EXPECT_EQ(Values(result), read[failing]);
        }
    }
}

TEST(AppearanceDescriptor, AValueOfTheWrongSizeIsAnErrorAndNeverHalfRead) {
    const Fields read[] = {kDefaults, {0.5, 1, 0, 0, false}, {0.5, 2, 0, 0, false}, {0.5, 2, -7, 0, false}, {0.5, 2, -7, 9, false}};
    for (size_t failing = 0; failing < kAll.size(); ++failing) {
        for (const bool isRefusedBySystem : {true, false}) {
            SCOPED_TRACE(std::to_string(failing) + (isRefusedBySystem ? " refused" : " handed out"));
            Descriptor descriptor;
            Put(&descriptor, kAll);
            const double value = 3.5;
            const Size size = kAll[failing].type == typeBoolean ? 2 : 4;
            if (isRefusedBySystem) {
                ASSERT_EQ(AEPutParamPtr(&descriptor.desc, kAll[failing].keyword, kAll[failing].type, &value, size), 0);
            } else {
                sShort = kAll[failing].keyword;
            }
            ViewingConditions result = {9, 9, 9, 9, true};
            EXPECT_EQ(UnpackAppearanceDescriptor(&descriptor.desc, &result), errAECorruptData);
            EXPECT_EQ(Values(result), read[failing]);
            sShort = 0;
        }
    }
}

TEST(AppearanceDescriptor, TheOrderInTheRecordIsOfNoConcern) {
    Descriptor descriptor;
    Put(&descriptor, {kAll[4], kAll[2], kAll[0], kAll[3], kAll[1]});
    ViewingConditions result = {9, 9, 9, 9, false};
    EXPECT_EQ(UnpackAppearanceDescriptor(&descriptor.desc, &result), 0);
    EXPECT_EQ(Values(result), Fields(0.5, 2, -7, 9, true));
}

TEST(AppearanceDescriptor, WhatIsNoRecordGivesTheDefaultsAndTheError) {
    const AEDesc nothing = {typeNull, nullptr};
    Descriptor list;
    ASSERT_EQ(AECreateList(nullptr, 0, false, &list.desc), 0);
    for (const AEDesc* descriptor : {&nothing, static_cast<const AEDesc*>(&list.desc)}) {
        ViewingConditions result = {9, 9, 9, 9, true};
        EXPECT_EQ(UnpackAppearanceDescriptor(descriptor, &result), errAEWrongDataType);
        EXPECT_EQ(Values(result), kDefaults);
    }
}

}  // namespace
