// How the probes write a text into the JSON of their answers.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace tv::test {

inline std::string quoted(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        char code[8];
        if (c == '"' || c == '\\') {
            (out += '\\') += c;
        } else if (static_cast<unsigned char>(c) < ' ') {
            std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(c));
            out += code;
        } else {
            out += c;
        }
    }
    return out + '"';
}

}  // namespace tv::test
