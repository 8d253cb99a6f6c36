// What the tests of messages share: readers of what was written that know nothing of the writer.
#pragma once

#include <gtest/gtest.h>

#include "log/LogNull.h"
#include "mime/Email2.h"
#include "tests/fixtures/TestBytes.h"

namespace tv::test {

inline std::string rendered(const Email2& root, const RenderOptions& options = {"TVX-"}) {
    LogNull log;
    StringStream out;
    EXPECT_TRUE(root.render(log, out, options));
    return out.text;
}

inline std::vector<std::string> linesOf(std::string_view text, std::string_view end = "\r\n") {
    std::vector<std::string> lines;
    for (size_t at = 0, next; at <= text.size(); at = next + end.size()) {
        next = std::min(text.find(end, at), text.size());
        lines.emplace_back(text.substr(at, next - at));
    }
    return lines;
}

// The value of a header field of a rendered message, unfolded; "(none)" if it has no such field.
inline std::string fieldOf(const std::string& message, const std::string& name) {
    const std::string header = message.substr(0, message.find("\r\n\r\n"));
    for (const std::string& field : linesOf(replaceAll(header, "\r\n ", " "))) {
        if (field.starts_with(name + ": ")) return field.substr(name.size() + 2);
    }
    return "(none)";
}

// Quoted-printable as its standard has it: soft breaks go, coded bytes come back.
inline std::string decodeQ(std::string_view in, char mark = '=') {
    std::string out;
    for (size_t i = 0; i < in.size(); ++i) {
        if (in[i] != mark) {
            out += in[i];
            continue;
        }
        const std::string two(in.substr(i + 1, 2));
        i += 2;
        if (two != "\r\n") out += char(std::stoul(two, nullptr, 16));
    }
    return out;
}

}  // namespace tv::test
