// A buffer of secrets holds its bytes and leaves none behind.
#include "base/SecureBuffer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <type_traits>

#include "tests/fixtures/TestBytes.h"

namespace {

// A block is looked at when it is given back, before the memory is reused.
const uint8_t* watched;
size_t watchedSize, freed, dirty;

}  // namespace

void operator delete[](void* block) noexcept {
    if (block != nullptr && block == watched) {
        ++freed;
        dirty += watchedSize - static_cast<size_t>(std::count(watched, watched + watchedSize, 0));
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

TEST(SecureBuffer, wipesWhatItGivesBack) {
    using Buffer = SecureBuffer;
    const std::pair<const char*, void (*)(Buffer&)> rows[] = {
        {"growth by append", [](Buffer& b) { b.append(std::string(1000, 'x')); }},
        {"growth by resize", [](Buffer& b) { b.resize(1000); }},
        {"growth by reserve", [](Buffer& b) { b.reserve(1000); }},
        {"copy from a larger one", [](Buffer& b) { b = Buffer(size_t{1000}); }},
        {"move", [](Buffer& b) { b = Buffer(bytesIn("other")); }},
        {"destruction", [](Buffer& b) { Buffer dying(std::move(b)); }},
    };
    for (const auto& [name, change] : rows) {
        Buffer buffer(bytesIn("correct horse battery staple"));
        watched = buffer.data();
        watchedSize = buffer.size();
        freed = dirty = 0;
        change(buffer);
        EXPECT_EQ(freed, 1u) << name;
        EXPECT_EQ(dirty, 0u) << name;
        watched = nullptr;
    }
}

TEST(SecureBuffer, wipesWhatItKeeps) {
    SecureBuffer buffer(bytesIn("correct horse"));
    const uint8_t* block = buffer.data();
    buffer.resize(7);
    EXPECT_EQ(textOf(buffer.bytes()), "correct");
    EXPECT_EQ(block[8], 0);
    buffer.assign(bytesIn("abc"));
    EXPECT_EQ(buffer.data(), block);
    EXPECT_EQ(textOf({block, 8}), std::string("abc\0\0\0\0\0", 8));
    buffer.removeFront(1);
    EXPECT_EQ(textOf({block, 4}), std::string("bc\0\0", 4));
    buffer.removeFront(3);
    EXPECT_TRUE(buffer.empty());
    EXPECT_EQ(textOf({block, 4}), std::string(4, '\0'));
}

TEST(SecureBuffer, copiesStandAlone) {
    SecureBuffer buffer;
    for (const char c : std::string(100, 'x')) {
        buffer.push_back(static_cast<uint8_t>(c));
    }
    SecureBuffer copy(buffer), second;
    copy[0] = 'y';
    SecureBuffer& self = copy;
    copy = self;
    second = copy;
    copy.resize(101);
    EXPECT_EQ(textOf(buffer.bytes()), std::string(100, 'x'));
    EXPECT_EQ(textOf(second.bytes()), "y" + std::string(99, 'x'));
    EXPECT_EQ(textOf(SecureBuffer(std::move(copy)).bytes()), "y" + std::string(99, 'x') + '\0');
}

static_assert(!std::is_convertible_v<SecureBuffer, std::string_view>);

}  // namespace
}  // namespace tv
