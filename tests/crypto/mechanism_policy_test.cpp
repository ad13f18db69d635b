// The mechanism policy: the FIPS 140-3 token rule and the firmware version comparison.
#include "crypto/mechanism_policy.h"

#include <gtest/gtest.h>

#include <climits>
#include <tuple>
#include <vector>

namespace {

TEST(MechanismPolicy, OnlyAThirdCharacterOneLeavesFips1403Mode) {
    EXPECT_FALSE(isFips1403Token("AB1X"));
    EXPECT_FALSE(isFips1403Token("OT1"));
    for (const char* fips : {"AB3X", "1B2X", "A1", "AB", ""})
        EXPECT_TRUE(isFips1403Token(fips)) << fips;
}

TEST(MechanismPolicy, VersionFieldsAreReadAsGetlineAndAtoiReadThem) {
    using Fields = std::vector<int>;
    EXPECT_EQ(versionFields(""), Fields{});
    EXPECT_EQ(versionFields("2."), Fields{2});
    EXPECT_EQ(versionFields(".5"), (Fields{0, 5}));
    EXPECT_EQ(versionFields("2..3."), (Fields{2, 0, 3}));
    EXPECT_EQ(versionFields(" \t12abc.-4. +7.v2"), (Fields{12, -4, 7, 0}));
    EXPECT_EQ(versionFields("99999999999.-99999999999"), (Fields{INT_MAX, INT_MIN}));
}

TEST(MechanismPolicy, VersionsCompareFieldByFieldWithMissingFieldsAsZero) {
    const std::tuple<const char*, const char*, int> cases[] = {
        {"2", "2.0.0", 0},        {"2.0", "2.0.0", 0},     {"1.9.9", "2.0.0", -1},
        {"10.0", "2.0.0", 1},     {"1.10", "1.9", 1},      {"2.0.0.1", "2.0.0", 1},
        {"2.0.0", "2.0.0.1", -1}, {"v2.0.0", "2.0.0", -1}, {"", "0.0", 0},
        {"-1", "0", -1},          {"2.x.1", "2.0.1", 0}};
    for (const auto& [a, b, result] : cases)
        EXPECT_EQ(compareVersions(a, b), result) << a << " " << b;
}

TEST(MechanismPolicy, FirmwareGateAcceptsTwoPointZeroAndAbove) {
    for (const char* accepted : {"2", "2.0", "2.0.0", "10.0"}) {
        EXPECT_TRUE(firmwareAtLeast(accepted, kGatedMechanismFirmware)) << accepted;
    }
    for (const char* refused : {"1.9.9", "v2.0.0", ""}) {
        EXPECT_FALSE(firmwareAtLeast(refused, kGatedMechanismFirmware)) << refused;
    }
}

}  // namespace
