// What the tests of messages share: a system that always draws the same, a host at work on one
// message step by step, and a small reader of encoded words that knows nothing of the writer.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "base/Base64.h"
#include "base/CodePage.h"
#include "base/ShuffleRandom.h"
#include "log/LogNull.h"
#include "mime/CharsetNames.h"
#include "mime/ClsEmail.h"
#include "mime/TvEmail.h"
#include "tests/fixtures/FakeSystem.h"
#include "tests/fixtures/TestBytes.h"

namespace tv::test {

inline std::filesystem::path pathOf(std::string_view utf8) {
    return std::u8string(utf8.begin(), utf8.end());
}

// Clock, random source, computer and boundaries are the same in every test, which has a folder of
// its own.
class MimeTest : public testing::Test {
protected:
    MimeTest() {
        boundaryRandom().setState(12345);
        // Several test programs may run at once.
        for (unsigned number = 0; folder_.empty(); ++number) {
            folder_ = testing::TempDir() + "mime_test_" + std::to_string(number);
            if (!std::filesystem::create_directory(pathOf(folder_))) folder_.clear();
        }
    }
    ~MimeTest() override {
        boundaryRandom().setState(0);
        std::error_code ignored;
        std::filesystem::remove_all(pathOf(folder_), ignored);
    }

    void file(const std::string& name, std::string_view content) const {
        std::ofstream(pathOf(folder_ + '/' + name), std::ios::binary) << content;
    }

    // "verb argument" or, for addresses, "verb name|address". Files are those of the folder.
    bool step(TvEmail& email, const std::string& step) {
        const std::string verb = step.substr(0, step.find(' '));
        const std::string text = step.substr(std::min(verb.size() + 1, step.size()));
        const size_t bar = text.find('|');
        const std::string name = bar == std::string::npos ? "" : text.substr(0, bar);
        const std::string address = text.substr(bar == std::string::npos ? 0 : bar + 1);
        const std::string path = folder_ + '/' + text;
        TvString id;
        email.put_Utf8(true);
        if (verb == "to") return email.AddTo(name.c_str(), address.c_str());
        if (verb == "cc") return email.AddCC(name.c_str(), address.c_str());
        if (verb == "bcc") return email.AddBcc(name.c_str(), address.c_str());
        if (verb == "html") return email.SetHtmlBody(text.c_str());
        if (verb == "attach") return email.AddFileAttachment(path.c_str());
        if (verb == "logo") return email.AddRelatedFile(path.c_str(), id);
        if (verb == "from") return email.put_From(text.c_str()), true;
        if (verb == "subject") return email.put_Subject(text.c_str()), true;
        if (verb == "options") return email.impl().setUncommonOptions(XString(text)), true;
        if (verb == "verbose") return email.impl().setVerboseLogging(true), true;
        if (verb == "computer") return (host_.name = text), true;
        if (verb == "page") return (host_.textFilePage = uint32_t(std::stoul(text))), true;
        if (verb == "random") return random_.bytes = {uint8_t(std::stoul(text))}, true;
        if (verb != "reset") return false;
        email.ClearBcc();
        email.ClearCC();
        email.ClearTo();
        email.KeepFrom();
        email.put_Subject("");
        email.RemovePlainTextAlternative();
        email.RemoveHtmlAlternative();
        email.DropAttachments();
        email.DropRelatedItems();
        return true;
    }

    FakeClock clock_;
    FakeRandom random_;
    FakeHost host_;
    LogNull log_;
    std::string folder_;
};

inline std::string rendered(const Email2& root, const RenderOptions& options = {"TVX-"}) {
    LogNull log;
    StringStream out;
    EXPECT_TRUE(root.render(log, out, options));
    return out.text;
}

inline std::string sent(TvEmail& email) {
    LogNull log;
    return rendered(*email.impl().createEmailForSending(log, true));
}

// The value of a header field of a rendered message, unfolded; "(none)" if it has no such field.
inline std::string fieldOf(std::string_view message, const std::string& name) {
    const std::string header(message.substr(0, message.find("\r\n\r\n")));
    const std::string lines = replaceAll("\r\n" + header + "\r\n", "\r\n ", " ");
    const size_t at = lines.find("\r\n" + name + ": ");
    if (at == std::string::npos) return "(none)";
    const size_t value = at + name.size() + 4;
    return lines.substr(value, lines.find("\r\n", value) - value);
}

inline std::vector<std::string> linesOf(std::string_view text, std::string_view end = "\r\n") {
    std::vector<std::string> lines;
    for (size_t at = 0, next; at <= text.size(); at = next + end.size()) {
        next = std::min(text.find(end, at), text.size());
        lines.emplace_back(text.substr(at, next - at));
    }
    return lines;
}

// Quoted-printable as its standard has it: soft breaks go, coded bytes come back.
inline std::string decodeQ(std::string_view in, char mark = '=') {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string out;
    for (size_t i = 0; i < in.size(); ++i) {
        if (in[i] != mark) {
            out += in[i];
            continue;
        }
        const std::string_view two = in.substr(i + 1, 2);
        i += 2;
        if (two != "\r\n") out += char(kDigits.find(two.at(0)) * 16 + kDigits.find(two.at(1)));
    }
    return out;
}

// An encoded word: its charset, coding and text.
inline const std::regex kWord("=\\?([^?]*)\\?([QB])\\?([^?]*)\\?=");

// The UTF-8 text of a value's encoded words; each word is decoded for itself, so a character that
// was cut in two comes out wrong.
inline std::string decodeWords(const std::string& value) {
    std::string out;
    for (std::sregex_iterator word(value.begin(), value.end(), kWord), end; word != end; ++word) {
        const std::string text = word->str(3);
        const std::string bytes = word->str(2) == "B" ? textOf(*base64Decode(text, text.size()))
                                                      : decodeQ(replaceAll(text, "_", " "));
        out += codePageToUtf8(codePageOfCharset(word->str(1)), bytes);
    }
    return out;
}

}  // namespace tv::test
