// Whatever a host hands over, the header stays a header: no field more than it set, no line that is
// too long, no byte that may not stand there.
#include <set>

#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

const std::string kNul(1, '\0');

std::string times(size_t count, char c) {
    return std::string(count, c);
}

const std::string kHostile[] = {
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
    "x\t\t@y\v\f\b\x7F",
    "é@ő..hu",
    "\u2028Bcc: v@z",
    times(500, '\x80') + "@y",
    times(3000, 'x') + "@y",
    times(3000, 'x') + " <a@y>",
    times(700, 'x') + ", " + times(700, 'y') + "@z",
    "x@" + times(1000, 'y'),
    "x " + times(3000, ' ') + "@y",
    "é" + times(3000, 'x') + "@y",
    "Anna <é" + times(690, 'x') + "@y>",
    times(250, 'x') + " <" + times(690, 'y') + "@z>",
    times(250, '"') + " <" + times(690, 'y') + "@z>",
};

// Everything that is set is one of these; a header has each at most once.
const std::string kKnown =
    "|MIME-Version|Date|Message-ID|Content-Type|Content-Transfer-Encoding|X-Priority|Subject|From|"
    "To|Cc|Bcc|Content-Disposition|";

void expectSoundHeader(const std::string& message, const std::string& what) {
    SCOPED_TRACE(what);
    std::set<std::string> seen;
    for (const std::string& line : linesOf(message.substr(0, message.find("\r\n\r\n")))) {
        EXPECT_LE(line.size(), 998u);
        EXPECT_TRUE(isAscii(line));
        EXPECT_EQ(line.find_first_of("\r\n" + kNul), std::string::npos);
        for (const std::string& word : wordsIn(line)) {
            EXPECT_LE(word.size(), 75u);
        }
        ASSERT_FALSE(line.empty());
        if (line[0] == ' ' || line[0] == '\t') {
            EXPECT_NE(line.find_first_not_of(" \t"), std::string::npos);
            continue;
        }
        const std::string name = line.substr(0, line.find(": "));
        EXPECT_NE(kKnown.find('|' + name + '|'), std::string::npos) << line;
        EXPECT_TRUE(seen.insert(name).second) << line;
    }
}

void expectSoundMessage(const ClsEmail& email, const std::string& what) {
    expectSoundHeader(sent(email), what);
    std::vector<std::string> envelope = email.getAllRecipientAddressesA();
    LogNull log;
    envelope.push_back(email.getSmtpReversePath(log));
    for (const std::string& address : envelope) {
        EXPECT_EQ(address.find_first_of("\r\n" + kNul), std::string::npos) << what;
    }
}

class InjectionTest : public MimeTest {};

TEST_F(InjectionTest, failsThroughEverySetter) {
    for (const std::string& hostile : kHostile) {
        const std::string setters[] = {
            "to " + hostile,      "to " + hostile + "|a@b",  "cc " + hostile + '|' + hostile,
            "bcc " + hostile,     "bcc " + hostile + "|a@b", "from " + hostile,
            "subject " + hostile, "html " + hostile};
        for (const std::string& setter : setters) {
            ClsEmail email;
            step(email, "options UseBccHeader");
            step(email, setter);
            expectSoundMessage(email, setter.substr(0, 60));
        }
        const std::unique_ptr<Email2> part =
            Email2(log_, std::make_shared<_tvEmailCommon>()).createSubPart();
        part->setFileContent("application/pdf", 0, hostile, nullptr);
        part->setDisposition("attachment", hostile);
        expectSoundHeader(rendered(*part), "file " + hostile.substr(0, 60));
    }
}

// Random mixtures of what matters to the writer, in all setters at once.
TEST_F(InjectionTest, failsWithRandomTexts) {
    const std::string bytes = "\r\n \t\"\\<>,;@:()[]%'*\x80\x1B" + kNul;
    const std::vector<std::string> words = {"\r\n", "é",  "ő",  "漢",   "a",
                                            "b.c",  "=?", "?=", "Bcc:", times(25, 'x')};
    uint32_t seed = 7;
    const auto draw = [&](size_t count) {
        std::string value;
        for (size_t i = 0; i < count; ++i) {
            seed = seed * 1664525 + 1013904223;
            const size_t at = (seed >> 16) % (bytes.size() + words.size());
            value += at < bytes.size() ? std::string(1, bytes[at]) : words[at - bytes.size()];
        }
        return value;
    };
    for (size_t round = 0; round < 300; ++round) {
        ClsEmail email;
        step(email, "options UseBccHeader");
        for (const std::string verb : {"to ", "cc ", "bcc ", "from ", "subject ", "html "}) {
            step(email, verb + draw(round) + '|' + draw(round));
        }
        expectSoundMessage(email, "round " + std::to_string(round));
    }
}

}  // namespace
}  // namespace tv::test
