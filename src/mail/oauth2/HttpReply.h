// The reply to one HTTP request on a connection that serves no other (RFC 9112). Pure.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/SecureBuffer.h"

namespace tv {

struct HttpReply {
    int status = 0;
    SecureBuffer body;
};

enum class HttpRead : uint8_t { NeedMore, Complete, Malformed };

// Reads the reply from all that has come so far; interim replies (1xx) before it are skipped.
// atEnd: the server has closed, which ends a body of no announced length.
HttpRead readHttpReply(std::string_view received, bool atEnd, HttpReply& reply);

}  // namespace tv
