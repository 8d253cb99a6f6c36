// Numbers that do not fit, constant-time choices, buffers that hold secrets and others, and the two
// sources of random numbers: the system's, and the small one whose sequence is fixed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "base/ByteWriter.h"
#include "base/ConstTime.h"
#include "base/DataBuffer.h"
#include "base/Random.h"
#include "base/SecureBuffer.h"
#include "base/ShuffleRandom.h"
#include "tests/fixtures/FakeSystem.h"
#include "tests/fixtures/TestBytes.h"

// The sanitizer would otherwise end the program where an allocation is too large to be tried.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

// A block is looked at when it is given back, before the memory is reused.
std::span<const uint8_t> watched;
bool dirty = false;

}  // namespace

void operator delete[](void* block) noexcept {
    if (block != nullptr && block == watched.data()) {
        dirty = std::ranges::any_of(watched, [](uint8_t byte) { return byte != 0; });
        watched = {};
    }
    std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    operator delete[](block);
}
void* operator new[](std::size_t size) {
    if (void* block = std::malloc(size)) return block;
    throw std::bad_alloc();
}

namespace tv {
namespace {

using test::bytesIn;
using test::textOf;
using Bytes = std::vector<uint8_t>;

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
        EXPECT_EQ(ctIsNonZero(a), a != 0 ? UINT32_MAX : 0u) << a;
        for (const uint32_t b : values) {
            EXPECT_EQ(ctIsEqual(a, b), a == b ? UINT32_MAX : 0u) << a << ", " << b;
            EXPECT_EQ(ctIsLess(a, b), a < b ? UINT32_MAX : 0u) << a << ", " << b;
            EXPECT_EQ(ctIsLess<uint64_t>(a, b), a < b ? UINT64_MAX : 0u) << a << ", " << b;
            EXPECT_EQ(ctSelect(UINT32_MAX, a, b), a);
            EXPECT_EQ(ctSelect(0u, a, b), b);
        }
    }
    EXPECT_TRUE(ctEqual(Bytes{1, 2}, Bytes{1, 2}) && ctEqual(Bytes(), Bytes()));
    EXPECT_FALSE(ctEqual(Bytes{1, 2}, Bytes{1}) || ctEqual(Bytes{1, 2}, Bytes{1, 0x82}));
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

TEST(ShuffleRandom, startsFromTheTickCount) {
    test::FakeClock clock(1);
    ShuffleRandom random;
    EXPECT_EQ(random.next(), 48271u);
    EXPECT_EQ(random.next(),
              182605794u);  // the product wraps at 2^32 before the remainder is taken
    // A state whose product is a multiple of the modulus: the tick count takes its place.
    EXPECT_EQ(ShuffleRandom(1622613393u).next(), 1u);
    clock.nowNs = 0;
    EXPECT_EQ(ShuffleRandom().digit(), 0) << "ends even so";
}

TEST(RandomBytes, areTheSystems) {
    Bytes first(32), second(32);
    EXPECT_TRUE(randomBytes(first) && randomBytes(second));
    EXPECT_NE(first, second);
    test::FakeRandom source;
    source.failAfter = 31;
    EXPECT_FALSE(randomBytes(first));
}

TEST(SecureBuffer, wipesWhatItGivesBack) {
    using Buffer = SecureBuffer;
    const std::pair<const char*, void (*)(Buffer&)> rows[] = {
        {"growth by append", [](Buffer& b) { b.append(std::string(1000, 'x')); }},
        {"assignment", [](Buffer& b) { b = Buffer(bytesIn("other")); }},
        {"destruction", [](Buffer& b) { Buffer dying(std::move(b)); }},
    };
    for (const auto& [name, change] : rows) {
        Buffer buffer(bytesIn("correct horse battery staple"));
        watched = buffer.bytes();
        change(buffer);
        EXPECT_TRUE(watched.empty()) << name << ": not given back";
        EXPECT_FALSE(dirty) << name;
    }
}

TEST(SecureBuffer, wipesWhatItKeeps) {
    SecureBuffer buffer(bytesIn("correct horse"));
    const uint8_t* block = buffer.data();
    buffer.resize(7);
    EXPECT_EQ(textOf({block, 13}), std::string("correct\0\0\0\0\0\0", 13));
    buffer.assign(bytesIn("abc"));
    EXPECT_EQ(buffer.data(), block);
    EXPECT_EQ(textOf({block, 8}), std::string("abc\0\0\0\0\0", 8));
    buffer.removeFront(1);
    EXPECT_EQ(textOf({block, 4}), std::string("bc\0\0", 4));
    buffer.removeFront(3);
    EXPECT_TRUE(buffer.empty() && textOf({block, 4}) == std::string(4, '\0'));
}

TEST(SecureBuffer, copiesStandAlone) {
    SecureBuffer buffer(bytesIn("xxx")), copy(buffer), second;
    SecureBuffer& self = copy;
    copy[0] = 'y';
    copy = self;
    second = copy;
    copy.resize(4);
    EXPECT_EQ(textOf(buffer.bytes()), "xxx");
    EXPECT_EQ(textOf(second.bytes()), "yxx");
    EXPECT_EQ(textOf(SecureBuffer(std::move(copy)).bytes()), std::string("yxx\0", 4));
}

}  // namespace
}  // namespace tv
