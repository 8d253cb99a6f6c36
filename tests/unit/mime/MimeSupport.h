// What the tests of messages share: a system that always draws the same, files to attach, rendering
// into a string, and a small reader of encoded words that knows nothing of the writer.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "base/CodePage.h"
#include "base/ShuffleRandom.h"
#include "log/LogNull.h"
#include "log/tvLogger.h"
#include "mime/CharsetNames.h"
#include "mime/ClsEmail.h"
#include "mime/Email2.h"
#include "tests/fixtures/FakeSystem.h"

namespace tv::test {

// Clock, random source, computer and boundaries are the same in every test.
class MimeTest : public testing::Test {
protected:
    MimeTest() { boundaryRandom().setState(12345); }
    ~MimeTest() override { boundaryRandom().setState(0); }

    FakeClock clock_;
    FakeRandom random_;
    FakeHost host_;
};

inline std::filesystem::path pathOf(const std::string& utf8) {
    return std::u8string(utf8.begin(), utf8.end());
}

inline std::string utf8Of(const std::filesystem::path& path) {
    const std::u8string utf8 = path.u8string();
    return {utf8.begin(), utf8.end()};
}

// A file of a chosen name in a directory of its own, gone with the object.
class TempFile {
public:
    TempFile(const std::string& utf8Name, std::string_view content) {
        directory_ = freshDirectory();
        file_ = directory_ / pathOf(utf8Name);
        std::ofstream(file_, std::ios::binary) << content;
    }
    ~TempFile() {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    std::string path() const { return utf8Of(file_); }
    std::string directory() const { return utf8Of(directory_); }

private:
    // Several test programs may run at once.
    static std::filesystem::path freshDirectory() {
        const std::filesystem::path parent = pathOf(testing::TempDir());
        for (unsigned number = 0;; ++number) {
            std::filesystem::path directory = parent / ("mime_test_" + std::to_string(number));
            if (std::filesystem::create_directory(directory)) return directory;
        }
    }

    std::filesystem::path directory_;
    std::filesystem::path file_;
};

// Names the rows of a table after their member "name".
struct CaseName {
    template <class Row>
    std::string operator()(const testing::TestParamInfo<Row>& row) const {
        return row.param.name;
    }
};

inline XString text(std::string_view utf8) {
    return XString(utf8);
}

inline std::string renderTree(const Email2& root, const RenderOptions& options = {"TVX-"}) {
    LogNull log;
    DataBuffer buffer;
    BufferStream out(buffer);
    EXPECT_TRUE(root.render(log, out, options));
    return std::string(buffer.text());
}

inline std::string renderSent(const ClsEmail& email) {
    LogNull log;
    const std::unique_ptr<Email2> copy = email.createEmailForSending(log, true);
    return copy ? renderTree(*copy) : "no copy";
}

// The value of a header field of a rendered message, unfolded; "(none)" if it has no such field.
inline std::string fieldOf(std::string_view message, std::string_view name) {
    std::string header(message.substr(0, message.find("\r\n\r\n")));
    header = replaceAll(header, "\r\n ", " ");
    const std::string start = "\r\n" + std::string(name) + ": ";
    const std::string lines = "\r\n" + header + "\r\n";
    const size_t at = lines.find(start);
    if (at == std::string::npos) return "(none)";
    const size_t value = at + start.size();
    return lines.substr(value, lines.find("\r\n", value) - value);
}

inline std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at <= text.size();) {
        const size_t end = std::min(text.find("\r\n", at), text.size());
        lines.emplace_back(text.substr(at, end - at));
        at = end + 2;
    }
    return lines;
}

inline int hexValue(char c) {
    return c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

inline std::string decodeQ(std::string_view in) {
    std::string out;
    for (size_t i = 0; i < in.size(); ++i) {
        if (in[i] == '=' && i + 2 < in.size()) {
            out += static_cast<char>(hexValue(in[i + 1]) * 16 + hexValue(in[i + 2]));
            i += 2;
        } else {
            out += in[i] == '_' ? ' ' : in[i];
        }
    }
    return out;
}

inline std::string decodeB(std::string_view in) {
    constexpr std::string_view kAlphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    unsigned bits = 0;
    int have = 0;
    for (const char c : in) {
        if (c == '=') break;
        bits = bits << 6 | static_cast<unsigned>(kAlphabet.find(c));
        have += 6;
        if (have < 8) continue;
        have -= 8;
        out += static_cast<char>(bits >> have & 0xFF);
    }
    return out;
}

// The UTF-8 text of a value made of encoded words alone; each word is decoded for itself, so a
// character that was cut in two comes out wrong.
inline std::string decodeWords(std::string_view value) {
    std::string out;
    for (size_t at = value.find("=?"); at != std::string_view::npos; at = value.find("=?", at)) {
        const size_t charsetEnd = value.find('?', at + 2);
        const size_t end = value.find("?=", charsetEnd + 3);
        if (end == std::string_view::npos) return "(broken)";
        const std::string_view charset = value.substr(at + 2, charsetEnd - at - 2);
        const std::string_view coded = value.substr(charsetEnd + 3, end - charsetEnd - 3);
        const std::string bytes = value[charsetEnd + 1] == 'B' ? decodeB(coded) : decodeQ(coded);
        out += codePageToUtf8(codePageOfCharset(charset), bytes);
        at = end + 2;
    }
    return out;
}

}  // namespace tv::test
