// A reader for the JSON objects (RFC 8259) that servers and settings give. Pure; what is read may
// be secret.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/SecureBuffer.h"

namespace tv {

struct JsonMember {
    enum class Kind : uint8_t { Text, Number, Bool, Null, Object, Array };

    std::string name;  // UTF-8
    Kind kind = Kind::Null;
    SecureBuffer value;  // a text as UTF-8 without its quotes, all else as it was written

    std::string_view text() const {
        return {reinterpret_cast<const char*>(value.data()), value.size()};
    }
};

// Answers of servers nest once or twice; each level takes of the host's stack.
constexpr unsigned kMaxJsonDepth = 16;

// The members of the one object that text holds, in their order. Nothing where text is not exactly
// that, nests deeper than kMaxJsonDepth or gives a name of the object twice.
std::optional<std::vector<JsonMember>> readJsonObject(std::string_view text);

// The member of that name; null where there is none.
const JsonMember* findMember(const std::vector<JsonMember>& members, std::string_view name);

}  // namespace tv
