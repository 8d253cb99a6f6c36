#include "net/x509/DerReader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "net/x509/X509Time.h"

namespace tv::x509 {
namespace {

using Der = std::vector<uint8_t>;

struct Malformed {
    const char* name;
    Der bytes;
};

class MalformedItem : public testing::TestWithParam<Malformed> {};

TEST_P(MalformedItem, IsRefusedAndStaysRefused) {
    DerReader r(GetParam().bytes);
    r.any();
    EXPECT_FALSE(r.ok());
    EXPECT_TRUE(r.any().whole.empty());
    EXPECT_FALSE(r.complete());
}

INSTANTIATE_TEST_SUITE_P(Der, MalformedItem,
                         testing::Values(Malformed{"Empty", {}}, Malformed{"NoLength", {0x30}},
                                         Malformed{"Indefinite", {0x30, 0x80, 0, 0}},
                                         Malformed{"ShortInLongForm", {0x04, 0x81, 0x7F}},
                                         Malformed{"LeadingZeroLength", {0x04, 0x82, 0x00, 0x80}},
                                         Malformed{"FiveByteLength", {0x04, 0x85, 1, 0, 0, 0, 0}},
                                         Malformed{"HugeLength",
                                                   {0x04, 0x84, 0xFF, 0xFF, 0xFF, 0xFF}},
                                         Malformed{"BeyondTheEnd", {0x04, 0x02, 0x00}},
                                         Malformed{"MultiByteTag", {0x1F, 0x81, 0x01, 0x00}}),
                         [](const auto& row) { return std::string(row.param.name); });

struct IntegerCase {
    const char* name;
    Der bytes;
    bool isInteger;
    bool isUnsigned;
    bool isSmall;
    uint32_t value;
};

class Integers : public testing::TestWithParam<IntegerCase> {};

TEST_P(Integers, AreReadStrictly) {
    const IntegerCase& p = GetParam();
    DerReader plain(p.bytes);
    plain.integer();
    EXPECT_EQ(plain.complete(), p.isInteger);
    DerReader positive(p.bytes);
    positive.unsignedInteger();
    EXPECT_EQ(positive.complete(), p.isUnsigned);
    DerReader small(p.bytes);
    const uint32_t value = small.smallInteger();
    EXPECT_EQ(small.complete(), p.isSmall);
    EXPECT_EQ(value, p.isSmall ? p.value : value);
}

INSTANTIATE_TEST_SUITE_P(
    Der, Integers,
    testing::Values(IntegerCase{"Zero", {2, 1, 0}, true, true, true, 0},
                    IntegerCase{"HighBit", {2, 2, 0, 0x80}, true, true, true, 128},
                    IntegerCase{
                        "Largest", {2, 5, 0, 255, 255, 255, 255}, true, true, true, 0xFFFFFFFF},
                    IntegerCase{"TooLarge", {2, 5, 1, 0, 0, 0, 0}, true, true, false, 0},
                    IntegerCase{"Negative", {2, 1, 0x80}, true, false, false, 0},
                    IntegerCase{"RedundantZero", {2, 2, 0, 1}, false, false, false, 0},
                    IntegerCase{"RedundantOnes", {2, 2, 0xFF, 0x80}, false, false, false, 0},
                    IntegerCase{"NoBytes", {2, 0}, false, false, false, 0}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(DerReader, BooleanAndBitStringHaveOneForm) {
    const Der kTrue = {1, 1, 0xFF}, kOne = {1, 1, 1}, kBits = {3, 2, 0, 5}, kUnused = {3, 2, 1, 4};
    EXPECT_TRUE(DerReader(kTrue).boolean());
    DerReader one(kOne);
    one.boolean();
    EXPECT_FALSE(one.ok());
    DerReader bits(kBits);
    EXPECT_EQ(bits.bitString().size(), 1u);
    DerReader unused(kUnused);
    unused.bitString();
    EXPECT_FALSE(unused.ok());
}

struct TimeCase {
    uint8_t tag;
    const char* text;
    bool good;
    int64_t seconds;
};

TEST(X509Time, OnlyTheFormOfDerIsRead) {
    const TimeCase cases[] = {
        {der::kUtcTime, "700101000000Z", true, 0},
        {der::kUtcTime, "491231235959Z", true, 2524607999},
        {der::kUtcTime, "500101000000Z", true, -631152000},
        {der::kGeneralizedTime, "20261121094500Z", true, 1795254300},
        {der::kGeneralizedTime, "20240229000000Z", true, 1709164800},
        {der::kGeneralizedTime, "99991231235959Z", true, 253402300799},
        {der::kGeneralizedTime, "20230229000000Z", false, 0},
        {der::kGeneralizedTime, "20261131000000Z", false, 0},
        {der::kGeneralizedTime, "20260001000000Z", false, 0},
        {der::kUtcTime, "7001010000Z", false, 0},
        {der::kUtcTime, "700101000000+0000", false, 0},
        {der::kUtcTime, "700101240000Z", false, 0},
        {der::kUtcTime, "700101006000Z", false, 0},
        {der::kGeneralizedTime, "20261121094500.5Z", false, 0},
        {der::kGeneralizedTime, "2026112109450 Z", false, 0},
        {der::kIa5String, "700101000000Z", false, 0},
    };
    for (const TimeCase& c : cases) {
        const std::string text = c.text;
        DerItem item;
        item.tag = c.tag;
        item.content = {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
        int64_t seconds = 0;
        ASSERT_EQ(parseTime(item, seconds), c.good) << text;
        EXPECT_EQ(seconds, c.good ? c.seconds : 0) << text;
    }
    EXPECT_EQ(timeText(1795254300), "2026-11-21 09:45:00 UTC");
    EXPECT_EQ(timeText(-1), "1969-12-31 23:59:59 UTC");
}

}  // namespace
}  // namespace tv::x509
