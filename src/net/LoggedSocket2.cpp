// A heading wherever the direction changes, and the bytes as they are.
#include "net/LoggedSocket2.h"

#include "base/Ascii.h"

namespace tv {

bool LoggedSocket2::openFile(std::string_view utf8Path) {
    file_.close();
    return file_.openAppend(utf8Path);
}

void LoggedSocket2::sent(std::span<const uint8_t> bytes) {
    record(Direction::Sending, "\r\n---- Sending ----\r\n", bytes);
}

void LoggedSocket2::received(std::span<const uint8_t> bytes) {
    record(Direction::Receiving, "\r\n---- Received ----\r\n", bytes);
}

void LoggedSocket2::notConnected() {
    record(Direction::None, "\r\n---- Not Connected ----\r\n", {});
}

void LoggedSocket2::clear() {
    text_.clear();
    last_ = Direction::None;
}

// A run in one direction carries one header.
void LoggedSocket2::record(Direction direction, std::string_view header,
                           std::span<const uint8_t> bytes) {
    if (direction == Direction::None || direction != last_) {
        write({bytesOf(header), header.size()});
        last_ = direction;
    }
    write(bytes);
}

// What does not fit into memory is missing there; a file that fails once is left alone.
void LoggedSocket2::write(std::span<const uint8_t> bytes) {
    text_.append(bytes);
    if (file_.isOpen() && !file_.write(bytes.data(), bytes.size())) {
        file_.close();
    }
}

}  // namespace tv
