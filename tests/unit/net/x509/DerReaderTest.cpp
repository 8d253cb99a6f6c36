// DER is read in its one form: items, numbers, times.
#include "net/x509/DerReader.h"

#include <gtest/gtest.h>

#include "net/x509/X509Time.h"
#include "tests/fixtures/HexBytes.h"

namespace tv::x509 {
namespace {

using test::bytesOfHex;
constexpr size_t npos = std::string_view::npos;

TEST(DerReader, malformedItemsAreRefusedAndStayRefused) {
    const std::pair<const char*, const char*> rows[] = {
        {"empty", ""},
        {"no length", "30"},
        {"indefinite", "30800000"},
        {"short in the long form", "04817f"},
        {"leading zero of a length", "04820080"},
        {"length of five bytes", "04850100000000"},
        {"huge length", "0484ffffffff"},
        {"beyond the end", "040200"},
        {"tag of several bytes", "1f810100"},
    };
    for (const auto& [name, hex] : rows) {
        const auto bytes = bytesOfHex(hex);
        DerReader r(bytes);
        r.any();
        EXPECT_FALSE(r.ok()) << name;
        EXPECT_TRUE(r.any().whole.empty()) << name;
        EXPECT_FALSE(r.complete()) << name;
    }
    const auto lowest = bytesOfHex("048180" + std::string(256, '0'));  // in the long form
    EXPECT_EQ(DerReader(lowest).any().content.size(), 128u);
}

TEST(DerReader, valuesHaveOneForm) {
    // i: an integer, u: one without a sign, s: a small one, b: a boolean, t: bits.
    const struct {
        const char* hex;
        const char* readAs;
        uint32_t small = 0;
    } rows[] = {
        {"020100", "ius", 0},
        {"02020080", "ius", 128},
        {"020500ffffffff", "ius", 0xFFFFFFFF},
        {"02050100000000", "iu"},
        {"020180", "i"},
        {"02020001", ""},
        {"0202ff80", ""},
        {"0200", ""},
        {"0101ff", "b"},
        {"010101", ""},
        {"03020005", "t"},
        {"03020104", ""},
    };
    for (const auto& row : rows) {
        const auto bytes = bytesOfHex(row.hex);
        DerReader i(bytes), u(bytes), s(bytes), b(bytes), t(bytes);
        i.integer();
        u.unsignedInteger();
        const uint32_t small = s.smallInteger();
        const bool isTrue = b.boolean();
        const size_t bits = t.bitString().size();
        const auto has = [&](char c) { return std::string_view(row.readAs).find(c) != npos; };
        EXPECT_EQ(i.complete(), has('i')) << row.hex;
        EXPECT_EQ(u.complete(), has('u')) << row.hex;
        EXPECT_EQ(s.complete() ? small : 0, row.small) << row.hex;
        EXPECT_EQ(s.complete(), has('s')) << row.hex;
        EXPECT_EQ(b.complete() && isTrue, has('b')) << row.hex;
        EXPECT_EQ(t.complete() && bits == 1, has('t')) << row.hex;
    }
}

TEST(X509Time, isReadInTheFormOfDer) {
    const struct {
        uint8_t tag;
        const char* text;
        bool good = false;
        int64_t seconds = 0;
    } rows[] = {
        {der::kUtcTime, "700101000000Z", true, 0},
        {der::kUtcTime, "491231235959Z", true, 2524607999},
        {der::kUtcTime, "500101000000Z", true, -631152000},
        {der::kGeneralizedTime, "20261121094500Z", true, 1795254300},
        {der::kGeneralizedTime, "20240229000000Z", true, 1709164800},
        {der::kGeneralizedTime, "99991231235959Z", true, 253402300799},
        {der::kGeneralizedTime, "20230229000000Z"},
        {der::kGeneralizedTime, "20261131000000Z"},
        {der::kGeneralizedTime, "20260001000000Z"},
        {der::kUtcTime, "7001010000Z"},
        {der::kUtcTime, "700101000000+0000"},
        {der::kUtcTime, "700101240000Z"},
        {der::kUtcTime, "700101006000Z"},
        {der::kGeneralizedTime, "20261121094500.5Z"},
        {der::kGeneralizedTime, "2026112109450 Z"},
        {der::kIa5String, "700101000000Z"},
    };
    for (const auto& row : rows) {
        const auto text = test::bytesOf(row.text);
        DerItem item;
        item.tag = row.tag;
        item.content = text;
        int64_t seconds = 0;
        EXPECT_EQ(parseTime(item, seconds), row.good) << row.text;
        EXPECT_EQ(seconds, row.seconds) << row.text;
    }
    EXPECT_EQ(timeText(-1), "1969-12-31 23:59:59 UTC");
}

}  // namespace
}  // namespace tv::x509
