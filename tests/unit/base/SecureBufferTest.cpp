#include "base/SecureBuffer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>

#include "base/ConstTime.h"
#include "tests/fixtures/TestBytes.h"

namespace tv {
namespace {

// Blocks of the buffer are looked at when they are given back, before the memory is reused.
struct FreedBlock {
    const uint8_t* at = nullptr;
    size_t size = 0;
    bool freed = false;
    bool clean = false;
};
FreedBlock watched;

void watch(const SecureBuffer& buffer) {
    watched = {buffer.data(), buffer.size(), false, false};
}

void lookAt(const void* block) {
    if (block == nullptr || block != watched.at) return;
    watched.freed = true;
    watched.clean = true;
    for (size_t i = 0; i < watched.size; ++i) {
        watched.clean = watched.clean && watched.at[i] == 0;
    }
}

}  // namespace
}  // namespace tv

void operator delete[](void* block) noexcept {
    tv::lookAt(block);
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

const std::string kSecret = "correct horse battery staple";

TEST(SecureBuffer, WipesWhatItGivesBack) {
    const struct {
        const char* name;
        void (*change)(SecureBuffer&);
    } rows[] = {
        {"growth by append", [](SecureBuffer& b) { b.append(std::string(1000, 'x')); }},
        {"growth by resize", [](SecureBuffer& b) { b.resize(1000); }},
        {"growth by reserve", [](SecureBuffer& b) { b.reserve(1000); }},
        {"copy from a larger one", [](SecureBuffer& b) { b = SecureBuffer(size_t{1000}); }},
        {"move", [](SecureBuffer& b) { b = SecureBuffer(bytesIn("other")); }},
        {"destruction", [](SecureBuffer& b) { SecureBuffer dying(std::move(b)); }},
    };
    for (const auto& row : rows) {
        SecureBuffer buffer(bytesIn(kSecret));
        watch(buffer);
        row.change(buffer);
        EXPECT_TRUE(watched.freed) << row.name;
        EXPECT_TRUE(watched.clean) << row.name;
    }
}

TEST(SecureBuffer, WipesWhatItKeeps) {
    SecureBuffer buffer(bytesIn(kSecret));
    const uint8_t* block = buffer.data();
    buffer.resize(7);
    EXPECT_EQ(test::textOf(buffer.bytes()), "correct");
    EXPECT_EQ(block[8], 0);
    buffer.assign(bytesIn("abc"));
    EXPECT_EQ(buffer.data(), block);
    EXPECT_EQ(test::textOf({block, 8}), std::string("abc\0\0\0\0\0", 8));
    buffer.removeFront(1);
    EXPECT_EQ(test::textOf({block, 4}), std::string("bc\0\0", 4));
    buffer.removeFront(3);
    EXPECT_TRUE(buffer.empty());
    EXPECT_EQ(test::textOf({block, 4}), std::string(4, '\0'));
}

TEST(SecureBuffer, HoldsItsBytes) {
    SecureBuffer buffer;
    for (int i = 0; i < 1000; ++i) {
        buffer.push_back(static_cast<uint8_t>(i));
    }
    ASSERT_EQ(buffer.size(), 1000u);
    EXPECT_EQ(buffer[999], 999 & 0xFF);
    SecureBuffer copy(buffer);
    copy[0] = 99;
    EXPECT_EQ(buffer[0], 0);
    copy = buffer;
    EXPECT_TRUE(ctEqual(copy.bytes(), buffer.bytes()));
    SecureBuffer& self = copy;
    copy = self;
    EXPECT_TRUE(ctEqual(copy.bytes(), buffer.bytes()));
    copy.resize(1001);
    EXPECT_EQ(copy[1000], 0);
    EXPECT_FALSE(ctEqual(copy.bytes(), buffer.bytes()));
    const SecureBuffer moved(std::move(copy));
    EXPECT_EQ(moved.size(), 1001u);
}

TEST(SecureBuffer, ComparesEveryByte) {
    SecureBuffer buffer(bytesIn(kSecret));
    EXPECT_TRUE(ctEqual(buffer.bytes(), bytesIn(kSecret)));
    EXPECT_TRUE(ctEqual(SecureBuffer().bytes(), {}));
    for (size_t i = 0; i < kSecret.size(); ++i) {
        for (const uint8_t flip : {uint8_t{1}, uint8_t{0x80}}) {
            buffer[i] = static_cast<uint8_t>(buffer[i] ^ flip);
            EXPECT_FALSE(ctEqual(buffer.bytes(), bytesIn(kSecret))) << i;
            buffer[i] = static_cast<uint8_t>(buffer[i] ^ flip);
        }
    }
}

static_assert(!std::is_convertible_v<SecureBuffer, std::string_view>);

}  // namespace
}  // namespace tv
