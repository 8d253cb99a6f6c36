#include <gtest/gtest.h>

#include "base/ByteReader.h"
#include "base/ByteWriter.h"
#include "base/ConstTime.h"
#include "base/DataBuffer.h"
#include "base/Hex.h"
#include "tests/fixtures/TestBytes.h"

// The sanitizer would otherwise end the program where an allocation is too large to be tried.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}

namespace tv {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes copyOf(std::span<const uint8_t> bytes) {
    return {bytes.begin(), bytes.end()};
}

TEST(ByteReader, ReadsBothByteOrders) {
    const Bytes bytes = {1, 2, 3, 4, 5, 6, 7, 8};
    const auto reader = [&] { return ByteReader(bytes); };
    EXPECT_EQ(reader().u8(), 0x01u);
    EXPECT_EQ(reader().u16(), 0x0102u);
    EXPECT_EQ(reader().u24(), 0x010203u);
    EXPECT_EQ(reader().u32(), 0x01020304u);
    EXPECT_EQ(reader().u64(), 0x0102030405060708u);
    EXPECT_EQ(reader().u16le(), 0x0201u);
    EXPECT_EQ(reader().u32le(), 0x04030201u);
    EXPECT_EQ(reader().u64le(), 0x0807060504030201u);
}

TEST(ByteReader, EveryReadBeyondTheEndFailsForGood) {
    const struct {
        const char* name;
        Bytes bytes;
        void (*read)(ByteReader&);
    } rows[] = {
        {"u8", {}, [](ByteReader& r) { EXPECT_EQ(r.u8(), 0); }},
        {"u16", {1}, [](ByteReader& r) { EXPECT_EQ(r.u16(), 0); }},
        {"u24", {1, 2}, [](ByteReader& r) { EXPECT_EQ(r.u24(), 0u); }},
        {"u32", {1, 2, 3}, [](ByteReader& r) { EXPECT_EQ(r.u32(), 0u); }},
        {"u32le", {1, 2, 3}, [](ByteReader& r) { EXPECT_EQ(r.u32le(), 0u); }},
        {"u64", {1, 2, 3, 4, 5, 6, 7}, [](ByteReader& r) { EXPECT_EQ(r.u64(), 0u); }},
        {"bytes", {1}, [](ByteReader& r) { EXPECT_TRUE(r.bytes(2).empty()); }},
        {"huge", {1}, [](ByteReader& r) { EXPECT_TRUE(r.bytes(SIZE_MAX).empty()); }},
        {"skip", {1}, [](ByteReader& r) { r.skip(2); }},
        {"seek", {1}, [](ByteReader& r) { r.seek(2); }},
        {"vector8", {2, 1}, [](ByteReader& r) { EXPECT_TRUE(r.vector8().empty()); }},
        {"vector16", {0, 2, 1}, [](ByteReader& r) { EXPECT_TRUE(r.vector16().empty()); }},
        {"vector24", {0, 0, 2, 1}, [](ByteReader& r) { EXPECT_TRUE(r.vector24().empty()); }},
        {"no length", {0}, [](ByteReader& r) { EXPECT_TRUE(r.vector16().empty()); }},
    };
    for (const auto& row : rows) {
        ByteReader reader(row.bytes);
        row.read(reader);
        EXPECT_FALSE(reader.ok()) << row.name;
        EXPECT_FALSE(reader.complete()) << row.name;
        reader.seek(0);
        EXPECT_EQ(reader.u8(), 0) << row.name << ": failed once is failed";
    }
}

TEST(ByteReader, KnowsWhenNothingIsLeftOver) {
    const Bytes bytes = {2, 7, 8, 9};
    ByteReader reader(bytes);
    EXPECT_EQ(copyOf(reader.vector8()), (Bytes{7, 8}));
    EXPECT_TRUE(reader.ok());
    EXPECT_FALSE(reader.complete());
    EXPECT_EQ(reader.position(), 3u);
    EXPECT_EQ(reader.left(), 1u);
    EXPECT_EQ(copyOf(reader.rest()), (Bytes{9}));
    EXPECT_TRUE(reader.complete());
    reader.seek(1);
    EXPECT_EQ(reader.u8(), 7);
    reader.fail();
    EXPECT_FALSE(reader.complete());
    EXPECT_TRUE(ByteReader().complete());
}

TEST(ByteWriter, WritesBothByteOrdersAndVectors) {
    ByteWriter writer;
    writer.u8(1);
    writer.u16(0x0203);
    writer.u24(0x040506);
    writer.u32(0x0708090A);
    writer.u16le(0x0C0B);
    writer.u32le(0x100F0E0D);
    writer.vector8(Bytes{0xAA});
    writer.vector(2, [&] {
        writer.vector(1, [&] { writer.append(std::string_view("xy")); });
        writer.zeros(1);
    });
    writer.u64(0xFFFFFFFFFFFFFFFF);
    EXPECT_TRUE(writer.ok());
    EXPECT_EQ(hexUpper(writer.bytes()),
              "0102030405060708090A0B0C0D0E0F1001AA000402787900FFFFFFFFFFFFFFFF");
    writer.patchU16le(1, 0xEFBE);
    writer.patchU32le(6, 0x11223344);
    EXPECT_EQ(hexUpper(writer.take()).substr(0, 20), "01BEEF04050644332211");
    EXPECT_EQ(writer.size(), 0u);
}

TEST(ByteWriter, NumbersThatDoNotFitSpoilTheMessage) {
    const struct {
        const char* name;
        void (*write)(ByteWriter&);
    } rows[] = {
        {"u8", [](ByteWriter& w) { w.u8(0x100); }},
        {"u16", [](ByteWriter& w) { w.u16(0x10000); }},
        {"u24", [](ByteWriter& w) { w.u24(0x1000000); }},
        {"u32", [](ByteWriter& w) { w.u32(0x100000000); }},
        {"u16le", [](ByteWriter& w) { w.u16le(0x10000); }},
        {"vector8", [](ByteWriter& w) { w.vector8(Bytes(256)); }},
        {"vector", [](ByteWriter& w) { w.vector(1, [&] { w.zeros(256); }); }},
        {"patch outside", [](ByteWriter& w) { w.patchU16le(1, 1); }},
    };
    for (const auto& row : rows) {
        ByteWriter writer;
        writer.u16(0);
        row.write(writer);
        EXPECT_FALSE(writer.ok()) << row.name;
        writer.u8(1);
        EXPECT_FALSE(writer.ok()) << row.name;
    }
}

TEST(ByteWriter, WritesSecretsIntoWipedMemory) {
    SecureByteWriter writer;
    writer.vector(2, [&] { writer.append(std::string_view("pw")); });
    const SecureBuffer message = writer.take();
    EXPECT_TRUE(ctEqual(message.bytes(), Bytes{0, 2, 'p', 'w'}));
}

TEST(ConstTime, MasksAreAllOrNothing) {
    constexpr uint32_t kTop = 0x80000000;
    const uint32_t values[] = {0, 1, 2, 25, kTop - 1, kTop, kTop + 1, UINT32_MAX - 1, UINT32_MAX};
    for (const uint32_t a : values) {
        EXPECT_EQ(ctIsZero(a), a == 0 ? UINT32_MAX : 0u) << a;
        EXPECT_EQ(ctIsNonZero(a), a != 0 ? UINT32_MAX : 0u) << a;
        for (const uint32_t b : values) {
            EXPECT_EQ(ctIsEqual(a, b), a == b ? UINT32_MAX : 0u) << a << ", " << b;
            EXPECT_EQ(ctIsLess(a, b), a < b ? UINT32_MAX : 0u) << a << ", " << b;
            EXPECT_EQ(ctIsLess<uint64_t>(a, b), a < b ? UINT64_MAX : 0u) << a << ", " << b;
            EXPECT_EQ(ctSelect(UINT32_MAX, a, b), a);
            EXPECT_EQ(ctSelect(0u, a, b), b);
        }
    }
    const Bytes bytes = {7, 8, 9};
    EXPECT_TRUE(ctEqual(bytes, Bytes{7, 8, 9}));
    EXPECT_FALSE(ctEqual(bytes, Bytes{7, 8, 8}));
    EXPECT_FALSE(ctEqual(bytes, Bytes{7, 8}));
}

TEST(Hex, DecodesPairsOfDigitsOnly) {
    const Bytes all = test::randomBytesOf(64);
    EXPECT_EQ(hexDecode(hexUpper(all)), all);
    EXPECT_EQ(hexDecode(hexLower(all)), all);
    EXPECT_EQ(hexUpper(Bytes{0x0A, 0xF0}), "0AF0");
    EXPECT_EQ(hexDecode(""), Bytes{});
    for (const char* bad : {"0", "0g", "g0", "0x10", " 00", "00 ", "0:", "/0", "@a", "`0"}) {
        EXPECT_FALSE(hexDecode(bad)) << bad;
    }
}

TEST(DataBuffer, GrowsAndShrinks) {
    DataBuffer buffer;
    EXPECT_TRUE(buffer.append(std::string_view("abc")));
    EXPECT_TRUE(buffer.append(std::string_view()));
    EXPECT_TRUE(buffer.resize(5));
    EXPECT_EQ(buffer.text(), std::string_view("abc\0\0", 5));
    EXPECT_TRUE(buffer.resize(1));
    EXPECT_EQ(buffer.text(), "a");
}

TEST(DataBuffer, NoMemoryIsAnAnswer) {
    DataBuffer buffer;
    ASSERT_TRUE(buffer.append(std::string_view("abc")));
    EXPECT_FALSE(buffer.reserve(SIZE_MAX));
    EXPECT_FALSE(buffer.resize(SIZE_MAX - 1));
    EXPECT_EQ(buffer.text(), "abc");
}

}  // namespace
}  // namespace tv
