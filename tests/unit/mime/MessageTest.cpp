// The message as its host composes it: setters, their logs and failures, the envelope, a reset,
// hostile texts, and whole messages byte for byte.
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "base/ShuffleRandom.h"
#include "log/tvLogger.h"
#include "mime/ClsEmail.h"
#include "mime/TvEmail.h"
#include "tests/fixtures/FakeSystem.h"
#include "tests/fixtures/TestData.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

std::filesystem::path pathOf(std::string_view utf8) {
    return std::u8string(utf8.begin(), utf8.end());
}

std::string sent(TvEmail& email) {
    LogNull log;
    return rendered(*email.impl().createEmailForSending(log, true));
}

std::string envelopeOf(TvEmail& email) {
    std::string joined;
    for (const std::string& address : email.impl().getAllRecipientAddressesA()) {
        joined += (joined.empty() ? "" : " ") + address;
    }
    return joined;
}

// A host at work on one message, on a system that always draws the same. Each test has a folder of
// its own; several test programs may run at once.
class Message : public testing::Test {
protected:
    Message() { boundaryRandom().setState(12345); }
    ~Message() override {
        std::error_code ignored;
        std::filesystem::remove_all(pathOf(folder_), ignored);
    }

    // "name" or, for a file that is to be made first, "name=content"; the path.
    std::string file(const std::string& text) const {
        const size_t mark = text.find('=');
        std::string path = folder_ + '/' + text.substr(0, mark);
        if (mark != std::string::npos) {
            std::filesystem::create_directories(pathOf(path).parent_path());
            std::ofstream(pathOf(path), std::ios::binary) << text.substr(mark + 1);
        }
        return path;
    }

    // "verb argument" or, for addresses, "verb name|address"; "named" is as whole messages are.
    bool step(TvEmail& email, const std::string& step) {
        const std::string verb = step.substr(0, step.find(' '));
        const std::string text = step.substr(std::min(verb.size() + 1, step.size()));
        const size_t bar = text.find('|');
        const std::string name = bar == std::string::npos ? "" : text.substr(0, bar);
        const std::string address = text.substr(bar == std::string::npos ? 0 : bar + 1);
        TvString id;
        email.put_Utf8(true);
        if (verb == "to") return email.AddTo(name.c_str(), address.c_str());
        if (verb == "cc") return email.AddCC(name.c_str(), address.c_str());
        if (verb == "bcc") return email.AddBcc(name.c_str(), address.c_str());
        if (verb == "html") return email.SetHtmlBody(text.c_str());
        if (verb == "file") return !file(text).empty();
        if (verb == "attach") return email.AddFileAttachment(file(text).c_str());
        if (verb == "logo") return email.AddRelatedFile(file(text).c_str(), id);
        if (verb == "from") return email.put_From(text.c_str()), true;
        if (verb == "subject") return email.put_Subject(text.c_str()), true;
        if (verb == "named") email.put_From("sender@example.com");
        if (verb == "named") return email.AddTo("", "anna@example.com");
        if (verb == "options") return email.impl().setUncommonOptions(XString(text)), true;
        if (verb == "verbose") return email.impl().setVerboseLogging(true), true;
        if (verb == "computer") return (host_.name = text), true;
        if (verb == "page") return (host_.textFilePage = uint32_t(std::stoul(text))), true;
        if (verb == "random") return random_.bytes = {uint8_t(std::stoul(text))}, true;
        if (verb != "reset") return false;
        email.put_Subject("");
        for (const auto clear :
             {&TvEmail::ClearBcc, &TvEmail::ClearCC, &TvEmail::ClearTo, &TvEmail::KeepFrom,
              &TvEmail::RemovePlainTextAlternative, &TvEmail::RemoveHtmlAlternative,
              &TvEmail::DropAttachments, &TvEmail::DropRelatedItems}) {
            (email.*clear)();
        }
        return true;
    }

    std::unique_ptr<Email2> copy(bool withId = true) {
        return email_.impl().createEmailForSending(log_, withId);
    }

    FakeClock clock_;
    FakeRandom random_;
    FakeHost host_;
    _tvLogger log_;
    TvEmail email_;
    const std::string folder_ =
        testing::TempDir() + "mime_" + std::to_string(std::random_device()());
};

// Steps of a host, with "!" behind the verb of one that fails. What then holds: "log:" and "has:"
// name a part of the last account and of the message, "no log:" one that is not there, "golden:"
// the file in tests/data/golden that the message is, byte for byte; anything else is a field, the
// envelope or the reverse path. After an intended change the files are written anew by
//     TV_WRITE_GOLDEN=1 build/native/tests/unit_mime --gtest_filter='*Golden*'
struct Row {
    const char* name;
    std::string steps;  // one or more, like what is wanted joined by " + "
    std::string wanted = "golden: " + std::string(name);
};

const std::string kX998(998, 'x');
const std::string kMeta = "html <meta charset=\"utf-8\">";
const std::string kImage = "<img src=\"cid:CID-04050607-0001-4203-8405-060700010203@TESTHOST\">";
const std::string kLogo("logo logo.png=\x89PNG\r\n\x1A\n\0\0\0\rIHDR", 30);
const std::string kNotes = "attach notes.txt=first\r\n.second\r\nFrom here = there \r\nlast";
const std::string kData = [] {
    std::string step = "attach data.bin=";
    for (int i = 0; i < 1000; ++i) {
        step += static_cast<char>(i * 7);
    }
    return step;
}();

const Row kGolden[] = {
    {"nothing", ""},
    {"ascii_html",
     "named + subject Hello + html <html><head><meta "
     "charset=\"utf-8\"></head>\r\n<body>Hi\n.</body></html>"},
    {"latin1_html",
     "named + subject Café à la carte + html <meta charset=utf-8><p>crème brûlée</p>"},
    {"latin2_html",
     "named + subject Árvíztűrő tükörfúrógép + html <meta http-equiv=\"Content-Type\" "
     "content=\"text/html; charset=utf-8\"><p>Árvíztűrő tükörfúrógép, ismét és ismét, egy "
     "sornál hosszabb szövegben.</p>\r\n.\r\n"},
    {"utf8_html",
     "named + subject 漢字かな交じり文の長い件名は、いくつもの符号化された語に分けられる。"
     "それでも元の文字はそのまま残る。 + html <p>漢字 😀</p>"},
    {"logo_and_html", "named + subject Logo + " + kLogo + " + html " + kImage},
    {"everything",
     kNotes +
         " + named + subject Számla: mellékelve + "
         "to Kovács Béla <bela@példa.hu>; \"Doe, John\" <john@example.com> + "
         "to a.rather.long.local.part@a.rather.long.domain.example.com + cc copy@example.com + "
         "bcc hidden@example.com + " +
         kLogo + " + html <p>Tisztelt Ügyfél!" + kImage + " + " + kData +
         " + attach számla 漢字.pdf=%PDF"},
    {"attachments_alone", "named + " + kData + " + " + kNotes},
};

const Row kRows[] = {
    {"a name that is the address", "to a@b| a@b ", "To: a@b"},
    {"name of the first", "cc Bea|Anna <a@b>; c@d", "Cc: Bea <a@b>, c@d"},
    {"in part no address", "to A <a@b>; b,x y", "To: A <a@b> + log: leftOutAsNoAddress: x y"},
    {"a name beside addresses", "to a@b; anna", "To: a@b + log: leftOutAsNoAddress: anna"},
    {"a refused name has no say in the charset", "to! José|x y + html x + to! José|;",
     "To: (none) + Content-Type: text/html; charset=us-ascii + log: AddTo: + log: name: José + "
     "log: address: ; + log: invalid email address"},
    {"no address", "cc! Anna| \t", "log: AddCC: + log: No Email Address was provided"},
    {"the longest address", "to " + kX998.substr(302) + "@b.c + to! " + kX998.substr(301) + "@b.c",
     "Cc: (none)"},
    {"order of the envelope", "bcc é|1@b; 2@b + cc 3@b + to 4@b + to 5@b",
     "envelope: 4@b 5@b 3@b 1@b 2@b + Bcc: (none) + Content-Type: text/plain; charset=us-ascii"},
    {"blind copies that are shown", "options x,UseBccHeader + bcc é|a@b",
     "Bcc: =?utf-8?Q?=C3=A9?= <a@b> + log: AddBcc: + log: address: a@b"},
    {"copies are not logged", "cc a@b", "no log: address: a@b"},
    {"copies are logged at length", "verbose + cc a@b", "log: address: a@b + log: Success"},
    {"the name stays", "from Anna <c@d> + from e@f", "From: Anna <e@f> + reverse: e@f"},
    {"a wrong one takes it away", "from Anna <c@d> + from x y@z",
     "From: (none) + reverse:  + log: invalid email address"},
    {"a reset keeps the sender", "from Ő <a@b> + subject 漢 + reset + from + from nobody",
     "From: =?iso-8859-2?Q?=D5?= <a@b> + reverse: a@b"},
    {"and no name for the next", "from Ő <a@b> + reset + from c@d", "From: c@d + reverse: c@d"},
    {"nor a charset", "subject 漢 + to a@b + attach photo=x + reset + html é",
     "Content-Type: text/html; charset=iso-8859-1"},
    {"a reset of everything",
     "to a@b + cc a@b + bcc a@b + subject 漢 + attach p=x + logo p=x + html 漢 + logo p=x + reset",
     "golden: nothing + envelope: "},
    {"no reset of what is addressed", "to a@b + subject 漢 + subject  + html é",
     "Content-Type: text/html; charset=utf-8"},
    {"a name of a computer", "computer My-PC_01.x", "has: @MyPC01x>\r\n"},
    {"a name that gives none", "computer 漢-", "has: @unknown>\r\n"},
    {"identifier of a logo", "random 255 + logo photo=x",
     "has: Content-ID: <CID-ffffffff-ffff-4fff-bfff-ffffffffffff@TESTHOST>\r\n"},
    {"line ends become one blank", "subject  one \r\n\t two\n\n\rBcc: b  c\n",
     "Subject: one two Bcc: b  c"},
    {"line end in a name", "to Anna\r\nKis|a@b", "To: \"Anna Kis\" <a@b>"},
    {"line ends of a body", "html a\nb\rc\r\n\n\r\r\r\nd",
     "has: \r\n\r\na\r\nb\r\nc\r\n\r\n\r\n\r\n\r\nd"},
    {"ASCII", kMeta + "plain",
     "log: Choosing us-ascii because body is 7bit + log: existingHtmlMetaCharset: utf-8 + "
     "has: <meta charset=\"us-ascii\">plain"},
    {"the subject raises it", kMeta + "plain + subject é",
     "Subject: =?utf-8?Q?=C3=A9?= + Content-Type: text/html; charset=utf-8 + "
     "has: <meta charset=\"utf-8\">plain"},
    {"Latin 1 is left", "subject á + " + kMeta + "ö + subject tűr",
     "Content-Type: text/html; charset=utf-8 + has: <meta charset=3D\"utf-8\">=C3=B6"},
    {"the longest line", "html " + kX998 + "\r\n" + kX998 + "\n" + kX998 + "\r" + kX998,
     "Content-Transfer-Encoding: 7bit"},
    {"one longer", "html \r" + kX998 + "y", "Content-Transfer-Encoding: quoted-printable"},
    {"a very long line", "html " + kX998 + kX998 + "yyyy",
     "log: because the longest HTML line length is 2000 chars or more."},
    {"short again", "html " + kX998 + "y + html x", "Content-Transfer-Encoding: 7bit"},
    {"no such file", "attach! no/ő.x",
     "log: AddFileAttachment: + log: no/ő.x + log: file does not exist + "
     "log: Failed to create attachment from file. + log: Failed to add file attachment"},
    {"a folder", "file x= + attach! ", "log: file does not exist"},
    {"no such logo", "logo! x.png",
     "log: AddRelatedFile: + log: loadIntoRelatedBody: + log: Failed to add related file + "
     "log: File does not exist, or cannot open file."},
    {"ASCII file", "attach a b.TXT=a=b", "has: text/plain; charset=us-ascii; name=\"a b.TXT\"\r\n"},
    {"UTF 8 file", "attach u.csv=\xC5\x91", "has: text/csv; charset=utf-8; + has: \n=C5=91\r\n-"},
    {"ANSI file", "page 1250 + attach x.csv=\xF5", "has: =windows-1250; + has: \n=F5\r\n-"},
    {"file of nobody", "page 0 + attach x.csv=\xF5", "has: =unknown-8bit; + has: \n=F5\r\n-"},
    {"not in UTF 8", "page 65001 + attach x.csv=\xF5", "has: =unknown-8bit;"},
    {"UTF 16", "attach x.csv=\xFF\xFEza", "has: application/octet-stream; + has: \n//56YQ==\r\n-"},
    {"big endian", "attach x.htm=\xFE\xFF\1a",
     "has: application/octet-stream; + has: \n/v8BYQ==\r"},
    {"a message", "attach x.MHT=x", "has: application/octet-stream; + has: \neA==\r\n-"},
    {"no type", "attach s.txt/photo=x", "has: application/octet-stream; name=\"photo\""},
    {"an empty file", "attach x.bin=", "has: filename=\"x.bin\"\r\n\r\n\r\n-"},
    {"mixed path", "file s/b.txt=x + attach s\\b.txt", "has: ; filename=\"b.txt\"\r\n"},
    {"mixed path of a logo", "file s/b.txt=x + logo s\\b.txt", "has: ; name=\"b.txt\"\r\n"},
#ifndef _WIN32
    {"line end in a file name", "attach a\r\nB: c=x",
     "has: stream; name=\"aB: c\"\r\n + has: attachment; filename=\"aB: c\"\r\n"},
    {"backslash", "file s/c.txt=x + attach s\\c.txt=back", "has: =\"c.txt\"\r\n\r\nback\r\n-"},
#endif
};

class Messages : public Message, public testing::WithParamInterface<Row> {};

TEST_P(Messages, areWhatTheirHostMadeOfThem) {
    for (std::string each : linesOf(GetParam().steps, " + ")) {
        const size_t mark = each.find("! ");
        const bool fails = mark < each.find(' ');
        if (fails) each.erase(mark, 1);
        EXPECT_EQ(each.empty() || step(email_, each), !fails) << each;
    }
    const std::string account = email_.LastErrorText().bytes();
    const std::string message = sent(email_);
    for (const std::string& each : linesOf(GetParam().wanted, " + ")) {
        const std::string what = each.substr(0, each.find(": "));
        const std::string value = each.substr(std::min(what.size() + 2, each.size()));
        const std::string golden = testDataPath("golden/" + value + ".eml");
        if (what == "golden" && std::getenv("TV_WRITE_GOLDEN")) {
            std::ofstream(golden, std::ios::binary) << message;
        }
        const bool holds = what == "log"        ? account.find(value) != std::string::npos
                           : what == "no log"   ? account.find(value) == std::string::npos
                           : what == "has"      ? message.find(value) != std::string::npos
                           : what == "golden"   ? fileText(golden) == message
                           : what == "envelope" ? envelopeOf(email_) == value
                           : what == "reverse"  ? email_.impl().getSmtpReversePath(log_) == value
                                                : fieldOf(message, what) == value;
        EXPECT_TRUE(holds) << each << "\nis not so in\n" << account << message;
    }
}

const auto kName = [](const auto& row) { return replaceAll(row.param.name, " ", "_"); };
INSTANTIATE_TEST_SUITE_P(Golden, Messages, testing::ValuesIn(kGolden), kName);
INSTANTIATE_TEST_SUITE_P(Rows, Messages, testing::ValuesIn(kRows), kName);

TEST_F(Message, hasAnIdentifierAndADateOfEachSend) {
    const std::string first = sent(email_);
    clock_.local.hour++;
    const std::string second = sent(email_);
    EXPECT_NE(fieldOf(first, "Message-ID"), fieldOf(second, "Message-ID"));
    EXPECT_NE(fieldOf(first, "Date"), fieldOf(second, "Date"));
    EXPECT_EQ(copy(false)->header().get("Message-ID"), copy(false)->header().get("Message-ID"));
}

// Wherever the stream fails: nothing is written after the failure. Copies share the body.
TEST_F(Message, endsWhereItsStreamFails) {
    step(email_, "html <p>\n");
    EXPECT_EQ(copy()->body(), copy()->body());
    step(email_, "attach a.txt=é");
    step(email_, "attach a.bin=" + std::string(100000, 'x'));
    StringStream whole;
    EXPECT_TRUE(copy()->render(log_, whole, {}));
    for (size_t writes = 0; writes < whole.calls; ++writes) {
        StringStream stream(writes);
        EXPECT_FALSE(copy()->render(log_, stream, {})) << writes;
        EXPECT_EQ(stream.calls, writes + 1);
    }
}

TEST_F(Message, isNotSentWithoutRandomBytes) {
    random_.failAfter = random_.given + 25;  // one whole draw, then short ones
    EXPECT_NE(copy(), nullptr);
    EXPECT_EQ(copy(), nullptr);
    random_.bytes = {0};  // twenty zeros: one more draw, which is short
    random_.failAfter = random_.given + 25;
    EXPECT_EQ(copy(), nullptr);
    EXPECT_FALSE(step(email_, "logo logo.png=png"));
    std::string account;
    log_.getText(account);
    account += email_.LastErrorText().bytes();
    for (const char* reason : {"Failed to generate random bytes for email Message-ID\r\n",
                               "Failed to generate random bytes for email Message-ID.\r\n",
                               "Failed to generate Content-ID for related item (1)\r\n"}) {
        EXPECT_NE(account.find(reason), std::string::npos) << account;
    }
}

// Whatever a host hands over, the header stays a header: no field more than it set, no line that is
// too long, no byte that may not stand there. Nor has the envelope a line end.
TEST_F(Message, keepsItsHeaderWhateverItsHostHandsOver) {
    const std::string x3000(3000, 'x'), y690(690, 'y'), quotes(250, '"'), blanks(3000, ' ');
    std::vector<std::string> texts = {x3000 + " <a@y>", "x@" + x3000, "x " + blanks + "@y",
                                      "A <é" + y690 + "@y>", quotes + " <" + y690 + "@z>"};
    for (uint32_t seed = 1; seed <= 100; ++seed) {
        texts.push_back(
            randomText(10 * seed, "\r\n\r\n\t\"\\<>,;@:()[]%'* x=?.\x1B\x7F\xC3\xA9", seed));
    }
    const std::string setters[][2] = {{"to ", "To|"},           {"cc ", "Cc|"},
                                      {"bcc ", "Bcc|"},         {"from ", "From|"},
                                      {"subject ", "Subject|"}, {"html ", ""}};
    for (const std::string& text : texts) {
        for (const auto& [verb, field] : setters) {
            for (const std::string& value : {text + "|a@b", text + '|' + text}) {
                SCOPED_TRACE(verb + value);
                TvEmail email;
                step(email, "options UseBccHeader");
                step(email, verb + value);
                const std::string message = sent(email);
                std::string fields;
                for (const auto& line : linesOf(message.substr(0, message.find("\r\n\r\n")))) {
                    EXPECT_LE(line.size(), 998u);
                    EXPECT_TRUE(isAscii(line) && line.find_first_of("\r\n") == line.npos);
                    EXPECT_NE(line.find_first_not_of(" \t"), line.npos);
                    if (!isBlank(line[0])) fields += line.substr(0, line.find(": ")) + '|';
                }
                const std::string known =
                    "MIME-Version|Date|Message-ID|Content-Type|"
                    "Content-Transfer-Encoding|X-Priority|" +
                    field;
                EXPECT_TRUE(known.starts_with(fields)) << fields;  // refused, it is not there
                const std::string paths = envelopeOf(email) + email.impl().getSmtpReversePath(log_);
                EXPECT_EQ(paths.find_first_of("\r\n"), paths.npos);
            }
        }
    }
}

}  // namespace
}  // namespace tv::test
