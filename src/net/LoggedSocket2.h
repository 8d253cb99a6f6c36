// The session log of a connection: all bytes sent and received, as they are before encryption and
// after decryption, in memory and, where asked for, in a file.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "base/DataBuffer.h"
#include "platform/SysFile.h"

namespace tv {

class LoggedSocket2 {
public:
    // Also appends to this file from now on. False where it cannot be opened.
    bool openFile(std::string_view utf8Path);
    bool hasFile() const { return file_.isOpen(); }

    void sent(std::span<const uint8_t> bytes);
    void received(std::span<const uint8_t> bytes);
    // Something was asked of a connection that does not exist.
    void notConnected();

    std::string_view text() const { return text_.text(); }
    void clear();

private:
    enum class Direction { None, Sending, Receiving };

    void record(Direction direction, std::string_view header, std::span<const uint8_t> bytes);
    void write(std::span<const uint8_t> bytes);

    DataBuffer text_;
    plat::SysFile file_;
    Direction last_ = Direction::None;
};

}  // namespace tv
