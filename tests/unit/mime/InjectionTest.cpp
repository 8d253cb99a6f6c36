// Whatever a host hands over, the header stays a header: no field more than it set, no line that is
// too long, no byte that may not stand there.
#include <set>

#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

const std::string kNul(1, '\0');

const std::vector<std::string> kHostile = {
    "x@y\r\nBcc: victim@z",
    "x@y\nBcc: victim@z",
    "x@y\rBcc: victim@z",
    "x@y\r\n\r\n<script>",
    "x@y\r\n Bcc: folded@z",
    "é@y\r\nBcc: victim@z",
    "x@y" + kNul + "\r\nBcc: victim@z",
    "\r\n\r\n\r\nx@y",
    "x@y\r\n.\r\nMAIL FROM:<>",
    "\"a\r\nBcc: b@c\" <x@y>",
    "Anna é\r\nBcc: v@z <x@y>",
    "=?utf-8?Q?x=0D=0ABcc:_v?= <x@y>",
    "a@b>\r\nBcc: v@z",
    std::string(3000, 'x') + "@y",
    std::string(3000, 'x') + " <a@y>",
    "x@" + std::string(1000, 'y'),
    std::string(700, 'x') + ", " + std::string(700, 'y') + "@z",
    "x " + std::string(3000, ' ') + "@y",
    std::string(250, 'x') + " <" + std::string(690, 'y') + "@z>",
    "x\t\t@y\v\f\b\x7F",
    "\xC3\xA9" + std::string(3000, 'x') + "@y",
    "Anna <\xC3\xA9" + std::string(690, 'x') + "@y>",
    std::string(250, '"') + " <" + std::string(690, 'y') + "@z>",
    "é@ő..hu",
    "\u2028Bcc: v@z",
};

// Everything that is set must be one of these; the header of a message has each at most once.
const std::set<std::string> kKnown = {"MIME-Version",
                                      "Date",
                                      "Message-ID",
                                      "Content-Type",
                                      "Content-Transfer-Encoding",
                                      "X-Priority",
                                      "Subject",
                                      "From",
                                      "To",
                                      "Cc",
                                      "Bcc",
                                      "Content-Disposition",
                                      "Content-ID"};

size_t longestWord(const std::string& line) {
    size_t longest = 0;
    for (const char* coding : {"?Q?", "?B?"}) {
        for (size_t at = 0; (at = line.find(coding, at)) != std::string::npos; at += 3) {
            const size_t start = line.rfind("=?", at);
            const size_t end = line.find("?=", at + 3);
            if (start != std::string::npos && end != std::string::npos) {
                longest = std::max(longest, end + 2 - start);
            }
        }
    }
    return longest;
}

void expectSoundHeader(const std::string& header, const std::string& what) {
    std::set<std::string> seen;
    for (const std::string& line : linesOf(header)) {
        EXPECT_LE(line.size(), 998u) << what;
        EXPECT_TRUE(isAscii(line)) << what;
        EXPECT_EQ(line.find_first_of("\r\n" + kNul), std::string::npos) << what;
        EXPECT_LE(longestWord(line), 75u) << what;
        ASSERT_FALSE(line.empty()) << what;
        if (line[0] == ' ' || line[0] == '\t') {
            EXPECT_NE(line.find_first_not_of(" \t"), std::string::npos) << what;
            continue;
        }
        const std::string name = line.substr(0, line.find(": "));
        EXPECT_TRUE(kKnown.count(name)) << what << " gave " << line;
        EXPECT_TRUE(seen.insert(name).second) << what << " doubled " << name;
    }
}

// Header blocks of the message and all its parts.
void expectSoundMessage(const ClsEmail& email, const std::string& what) {
    LogNull log;
    const auto copy = email.createEmailForSending(log, true);
    const std::string message = renderTree(*copy);
    expectSoundHeader(message.substr(0, message.find("\r\n\r\n")), what);
    const std::string delimiter = "--" + copy->contentType().boundary + "\r\n";
    for (size_t at = message.find(delimiter); at != std::string::npos;
         at = message.find(delimiter, at + 1)) {
        const size_t start = at + delimiter.size();
        expectSoundHeader(message.substr(start, message.find("\r\n\r\n", start) - start), what);
    }
}

class InjectionTest : public MimeTest {};

TEST_F(InjectionTest, ThroughEverySetter) {
    for (const std::string& hostile : kHostile) {
        const XString value = text(hostile);
        for (int setter = 0; setter < 7; ++setter) {
            ClsEmail email;
            email.setUncommonOptions(text("UseBccHeader"));
            if (setter == 0) email.AddTo(text(""), value);
            if (setter == 1) email.AddTo(value, text("a@b"));
            if (setter == 2) email.AddCC(value, value);
            if (setter == 3) email.AddBcc(value, value);
            if (setter == 4) email.put_FromAddress(value);
            if (setter == 5) email.put_Subject(value);
            if (setter == 6) email.SetHtmlBody(value);
            expectSoundMessage(email, hostile.substr(0, 60) + " in " + std::to_string(setter));
            for (const std::string& address : email.getAllRecipientAddressesA()) {
                EXPECT_EQ(address.find_first_of("\r\n" + kNul), std::string::npos);
            }
            LogNull log;
            EXPECT_EQ(email.getSmtpReversePath(log).find_first_of("\r\n" + kNul),
                      std::string::npos);
        }
    }
}

TEST_F(InjectionTest, ThroughFileNames) {
    for (const std::string& hostile : kHostile) {
        LogNull log;
        Email2 root(log, std::make_shared<_tvEmailCommon>());
        std::unique_ptr<Email2> part = root.createSubPart();
        part->setFileContent("application/pdf", 0, hostile, nullptr);
        part->setDisposition("attachment", hostile);
        const std::string rendered = renderTree(*part);
        expectSoundHeader(rendered.substr(0, rendered.find("\r\n\r\n")), hostile.substr(0, 60));
    }
}

// Random mixtures of what matters to the writer, in all setters at once.
TEST_F(InjectionTest, RandomTexts) {
    const std::vector<std::string> pieces = {
        "\r\n", "\n", "\r",   kNul,   " ",  "\t", "\"",   "\\",
        "<",    ">",  ",",    ";",    "@",  ":",  "é",    "ő",
        "漢",   "a",  "b.c",  "=?",   "?=", "(",  ")",    "[",
        "]",    "%",  "\x80", "Bcc:", "'",  "*",  "\x1B", "xxxxxxxxxxxxxxxxxxxxxxxxx"};
    uint32_t seed = 7;
    const auto draw = [&](size_t count) {
        std::string value;
        for (size_t i = 0; i < count; ++i) {
            seed = seed * 1664525 + 1013904223;
            value += pieces[(seed >> 16) % pieces.size()];
        }
        return value;
    };
    for (size_t round = 0; round < 300; ++round) {
        ClsEmail email;
        email.setUncommonOptions(text("UseBccHeader"));
        email.AddTo(text(draw(round)), text(draw(round)));
        email.AddCC(text(draw(round)), text(draw(round)));
        email.AddBcc(text(draw(round)), text(draw(round)));
        email.put_FromAddress(text(draw(round)));
        email.put_Subject(text(draw(round)));
        email.SetHtmlBody(text(draw(round)));
        expectSoundMessage(email, "round " + std::to_string(round));
    }
}

}  // namespace
}  // namespace tv::test
