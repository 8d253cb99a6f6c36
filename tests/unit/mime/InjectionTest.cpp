// Whatever a host hands over, the header stays a header: no field more than it set, no line that is
// too long, no byte that may not stand there.
#include <set>

#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

std::string times(size_t count, char c) {
    return std::string(count, c);
}

// What has ended a line or grown too long, and random mixtures of what matters to the writer.
std::vector<std::string> hostileTexts() {
    std::vector<std::string> texts = {
        "x@y\r\nBcc: victim@z",
        "é@y\r\nBcc: victim@z",
        "x@y\r\n.\r\nMAIL FROM:<>",
        "Anna é\r\nBcc: v@z <x@y>",
        "=?utf-8?Q?x=0D=0ABcc:_v?= <x@y>",
        "x\t\t@y\v\f\b\x7F",
        times(500, '\x80') + "@y",
        times(3000, 'x') + " <a@y>",
        times(700, 'x') + ", " + times(700, 'y') + "@z",
        "x@" + times(1000, 'y'),
        "x " + times(3000, ' ') + "@y",
        "é" + times(3000, 'x') + "@y",
        "Anna <é" + times(690, 'x') + "@y>",
        times(250, '"') + " <" + times(690, 'y') + "@z>",
    };
    const std::string bytes = "\r\n \t\"\\<>,;@:()[]%'*\x80\x1B";
    const std::vector<std::string> words = {"\r\n", "é",  "ő",  "漢",   "a",
                                            "b.c",  "=?", "?=", "Bcc:", times(25, 'x')};
    const std::vector<uint8_t> random = randomBytesOf(100 * 100);
    for (size_t i = 0; i < random.size(); ++i) {
        const size_t at = random[i] % (bytes.size() + words.size());
        if (i % 100 == 0) texts.emplace_back();
        texts.back() += at < bytes.size() ? std::string(1, bytes[at]) : words[at - bytes.size()];
    }
    return texts;
}

// Everything that is set is one of these; a header has each at most once.
const std::string kKnown =
    "|MIME-Version|Date|Message-ID|Content-Type|Content-Transfer-Encoding|X-Priority|Subject|From|"
    "To|Cc|Bcc|Content-Disposition|";

void expectSoundHeader(const std::string& message) {
    std::set<std::string> seen;
    for (const std::string& line : linesOf(message.substr(0, message.find("\r\n\r\n")))) {
        EXPECT_LE(line.size(), 998u);
        EXPECT_TRUE(isAscii(line));
        EXPECT_EQ(line.find_first_of("\r\n"), std::string::npos);
        for (std::sregex_iterator word(line.begin(), line.end(), kWord), end; word != end; ++word) {
            EXPECT_LE(word->length(), 75);
        }
        EXPECT_NE(line.find_first_not_of(" \t"), std::string::npos);
        if (line.starts_with(' ') || line.starts_with('\t')) continue;
        const std::string name = line.substr(0, line.find(": "));
        EXPECT_NE(kKnown.find('|' + name + '|'), std::string::npos) << line;
        EXPECT_TRUE(seen.insert(name).second) << line;
    }
}

class InjectionTest : public MimeTest {};

TEST_F(InjectionTest, failsThroughEverySetter) {
    for (const std::string& hostile : hostileTexts()) {
        SCOPED_TRACE(hostile.substr(0, 60));
        for (const std::string verb : {"to ", "cc ", "bcc ", "from ", "subject ", "html "}) {
            for (const std::string& text : {hostile, hostile + "|a@b", hostile + '|' + hostile}) {
                TvEmail email;
                step(email, "options UseBccHeader");
                step(email, verb + text);
                expectSoundHeader(sent(email));
                std::vector<std::string> envelope = email.impl().getAllRecipientAddressesA();
                envelope.push_back(email.impl().getSmtpReversePath(log_));
                for (const std::string& address : envelope) {
                    EXPECT_EQ(address.find_first_of("\r\n"), std::string::npos) << verb;
                }
            }
        }
        const auto part = Email2(log_, std::make_shared<_tvEmailCommon>()).createSubPart();
        part->setFileContent("application/pdf", 0, hostile, nullptr);
        part->setDisposition("attachment", hostile);
        expectSoundHeader(rendered(*part));
    }
}

}  // namespace
}  // namespace tv::test
