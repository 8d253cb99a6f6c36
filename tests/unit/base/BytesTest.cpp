// Numbers and vectors in bytes, constant-time choices, hexadecimal digits, buffers.
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

// Each read takes all of its bytes; one of fewer bytes fails for good.
TEST(ByteReader, readsWhatIsThere) {
    using Reader = ByteReader;
    const struct {
        const char* name;
        Bytes bytes;
        uint64_t (*read)(Reader&);
        uint64_t value;
    } rows[] = {
        {"u8", {1}, [](Reader& r) -> uint64_t { return r.u8(); }, 1},
        {"u16", {1, 2}, [](Reader& r) -> uint64_t { return r.u16(); }, 0x0102},
        {"u24", {1, 2, 3}, [](Reader& r) -> uint64_t { return r.u24(); }, 0x010203},
        {"u32", {1, 2, 3, 4}, [](Reader& r) -> uint64_t { return r.u32(); }, 0x01020304},
        {"u64", Bytes(8, 7), [](Reader& r) { return r.u64(); }, 0x0707070707070707},
        {"u16le", {1, 2}, [](Reader& r) -> uint64_t { return r.u16le(); }, 0x0201},
        {"u32le", {1, 2, 3, 4}, [](Reader& r) -> uint64_t { return r.u32le(); }, 0x04030201},
        {"u64le", {8, 0, 0, 0, 0, 0, 0, 1}, [](Reader& r) { return r.u64le(); }, 0x100000000000008},
        {"bytes", {1, 9}, [](Reader& r) -> uint64_t { return r.bytes(2).size(); }, 2},
        {"vector8", {1, 9}, [](Reader& r) -> uint64_t { return r.vector8().size(); }, 1},
        {"vector16", {0, 1, 9}, [](Reader& r) -> uint64_t { return r.vector16().size(); }, 1},
        {"vector24", {0, 0, 1, 9}, [](Reader& r) -> uint64_t { return r.vector24().size(); }, 1},
        {"skip", {1, 9}, [](Reader& r) -> uint64_t { return r.skip(2), 0; }, 0},
        {"seek", {1, 9}, [](Reader& r) -> uint64_t { return r.seek(2), 0; }, 0},
    };
    for (const auto& row : rows) {
        Reader whole(row.bytes);
        EXPECT_EQ(row.read(whole), row.value) << row.name;
        EXPECT_TRUE(whole.complete()) << row.name;
        for (size_t cut = 0; cut < row.bytes.size(); ++cut) {
            const Bytes less(row.bytes.begin(), row.bytes.begin() + ptrdiff_t(cut));
            Reader reader(less);
            EXPECT_EQ(row.read(reader), 0u) << row.name;
            reader.seek(0);
            EXPECT_EQ(reader.u8(), 0) << row.name << ": failed once is failed";
            EXPECT_FALSE(reader.ok() || reader.complete()) << row.name;
        }
    }
    const Bytes bytes = {2, 7, 8, 9};
    Reader reader(bytes);
    EXPECT_EQ(hexUpper(reader.vector8()), "0708");
    EXPECT_TRUE(reader.ok() && !reader.complete() && reader.position() == 3 && reader.left() == 1);
    EXPECT_EQ(hexUpper(reader.rest()), "09");
    EXPECT_TRUE(reader.complete());
    EXPECT_TRUE(reader.bytes(SIZE_MAX).empty());
    EXPECT_FALSE(reader.ok());
}

TEST(ByteWriter, writesNumbersAndVectors) {
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

TEST(ByteWriter, numbersThatDoNotFitSpoilTheMessage) {
    using Writer = ByteWriter;
    const std::pair<const char*, void (*)(Writer&)> rows[] = {
        {"u8", [](Writer& w) { w.u8(0x100); }},
        {"u16", [](Writer& w) { w.u16(0x10000); }},
        {"u24", [](Writer& w) { w.u24(0x1000000); }},
        {"u32", [](Writer& w) { w.u32(0x100000000); }},
        {"u16le", [](Writer& w) { w.u16le(0x10000); }},
        {"vector8", [](Writer& w) { w.vector8(Bytes(256)); }},
        {"vector", [](Writer& w) { w.vector(1, [&] { w.zeros(256); }); }},
        {"patch outside", [](Writer& w) { w.patchU16le(1, 1); }},
    };
    for (const auto& [name, write] : rows) {
        Writer writer;
        writer.u16(0);
        write(writer);
        writer.u8(1);
        EXPECT_FALSE(writer.ok()) << name;
    }
}

TEST(ConstTime, masksAreAllOrNothing) {
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
    const Bytes bytes = test::randomBytesOf(40);
    EXPECT_TRUE(ctEqual(bytes, Bytes(bytes)) && ctEqual(Bytes(), Bytes()));
    EXPECT_FALSE(ctEqual(bytes, Bytes(bytes.begin(), bytes.end() - 1)));
    for (size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
        Bytes other = bytes;
        other[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
        EXPECT_FALSE(ctEqual(bytes, other)) << bit;
    }
}

TEST(Hex, decodesPairsOfDigitsOnly) {
    const Bytes all = test::randomBytesOf(64);
    EXPECT_EQ(hexDecode(hexUpper(all)), all);
    EXPECT_EQ(hexDecode(hexLower(all)), all);
    EXPECT_EQ(hexUpper(Bytes{0x0A, 0xF0}), "0AF0");
    EXPECT_EQ(hexDecode(""), Bytes{});
    for (const char* bad : {"0", "0g", "g0", "0x10", " 00", "00 ", "0:", "/0", "@a", "`0"}) {
        EXPECT_FALSE(hexDecode(bad)) << bad;
    }
}

TEST(DataBuffer, noMemoryIsAnAnswer) {
    DataBuffer buffer;
    EXPECT_TRUE(buffer.append(std::string_view("abc")) && buffer.append(std::string_view()));
    EXPECT_TRUE(buffer.resize(5));
    EXPECT_EQ(buffer.text(), std::string_view("abc\0\0", 5));
    EXPECT_TRUE(buffer.resize(1));
    EXPECT_FALSE(buffer.reserve(SIZE_MAX) || buffer.resize(SIZE_MAX - 1));
    EXPECT_EQ(buffer.text(), "a");
}

}  // namespace
}  // namespace tv
