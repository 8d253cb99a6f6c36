// The message as its host composes it: setters, their logs and failures, the envelope, a reset, and
// whole messages byte for byte.
#include <cstdlib>

#include "log/tvLogger.h"
#include "tests/fixtures/TestData.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

// Steps as MimeTest has them, with "!" behind the verb of one that fails. What then holds: "log:"
// and "has:" name a part of the last account and of the message, "no log:" one that is not there,
// "golden:" the file in tests/data/golden that the message is, byte for byte; anything else is a
// field, the envelope or the reverse path. After an intended change the files are written anew by
//     TV_WRITE_GOLDEN=1 build/native/tests/unit_mime --gtest_filter='*Golden*'
struct Row {
    const char* name;
    std::string steps;  // one or more, like what is wanted joined by " + "
    std::string wanted = "golden: " + std::string(name);
};

const std::string kX998(998, 'x');
const std::string kMeta = "html <meta charset=\"utf-8\">";
const std::string kImage = "<img src=\"cid:CID-04050607-0001-4203-8405-060700010203@TESTHOST\">";
const std::string kNamed = "from sender@example.com + to anna@example.com";

const Row kGolden[] = {
    {"nothing", ""},
    {"ascii_html", kNamed +
                       " + subject Hello + html <html><head><meta charset=\"utf-8\"></head>\r\n"
                       "<body>Hi\n.</body></html>"},
    {"latin1_html",
     kNamed + " + subject Café à la carte + html <meta charset=utf-8><p>crème brûlée</p>"},
    {"latin2_html",
     kNamed +
         " + subject Árvíztűrő tükörfúrógép + "
         "html <meta http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\">"
         "<p>Árvíztűrő tükörfúrógép, ismét és ismét, egy sornál hosszabb szövegben.</p>\r\n.\r\n"},
    {"utf8_html",
     kNamed + " + subject 漢字かな交じり文の長い件名は、いくつもの符号化された語に分けられる。"
              "それでも元の文字はそのまま残る。 + html <p>漢字 😀</p>"},
    {"logo_and_html", kNamed + " + subject Logo + logo logo.png + html " + kImage},
    {"everything",
     "attach notes.txt + " + kNamed +
         " + subject Számla: mellékelve + "
         "to Kovács Béla <bela@példa.hu>; \"Doe, John\" <john@example.com> + "
         "to a.rather.long.local.part@a.rather.long.domain.example.com + cc copy@example.com + "
         "bcc hidden@example.com + logo logo.png + html <p>Tisztelt Ügyfél!" +
         kImage + " + attach data.bin + attach számla 漢字.pdf"},
    {"attachments_alone", kNamed + " + attach data.bin + attach notes.txt"},
};

const Row kRows[] = {
    {"addresses alone", "to  a@b  + cc c@d", "To: a@b + Cc: c@d + envelope: a@b c@d"},
    {"a name that is the address", "to a@b| a@b ", "To: a@b"},
    {"the name is the first one's", "cc Bea|Anna <a@b>; c@d", "Cc: Bea <a@b>, c@d"},
    {"a local name", "to nobody", "To: nobody + envelope: nobody"},
    {"in part no address", "to A <a@b>; b,x y", "To: A <a@b> + log: leftOutAsNoAddress: x y"},
    {"a name beside addresses", "to a@b; anna", "To: a@b + log: leftOutAsNoAddress: anna"},
    {"a refused name has no say in the charset", "to! José|x y + html x + to! José|;",
     "To: (none) + Content-Type: text/html; charset=us-ascii + log: AddTo: + log: name: José + "
     "log: address: ; + log: invalid email address"},
    {"no address", "cc! Anna| \t", "log: AddCC: + log: No Email Address was provided"},
    {"the longest address", "to " + kX998.substr(302) + "@b.c", "Cc: (none)"},
    {"a longer one", "to! " + kX998.substr(301) + "@b.c", "To: (none)"},
    {"order of the envelope", "bcc é|1@b; 2@b + cc 3@b + to 4@b + to 5@b",
     "envelope: 4@b 5@b 3@b 1@b 2@b + Bcc: (none) + Content-Type: text/plain; charset=us-ascii"},
    {"blind copies are logged", "bcc a@b; c@d", "log: AddBcc: + log: address: a@b; c@d"},
    {"blind copies that are shown", "options x,UseBccHeader + bcc é|a@b",
     "Bcc: =?utf-8?Q?=C3=A9?= <a@b>"},
    {"copies are not logged", "cc a@b", "no log: address: a@b"},
    {"copies are logged at length", "verbose + cc a@b", "log: address: a@b"},

    {"sender without address", "from nobody", "From: (none) + reverse: "},
    {"sender with name", "from  Jó <c@d> ", "From: =?iso-8859-1?Q?J=F3?= <c@d> + reverse: c@d"},
    {"the name stays", "from Anna <c@d> + from e@f", "From: Anna <e@f> + reverse: e@f"},
    {"no address changes nothing", "from Anna <c@d> + from x + from", "reverse: c@d"},
    {"a wrong one takes it away", "from Anna <c@d> + from x y@z",
     "From: (none) + reverse:  + log: invalid email address"},
    {"and the name", "from Anna <c@d> + from x y@z + from g@h", "From: g@h"},
    {"a reset keeps the sender", "from Ő <a@b> + subject 漢 + reset + from + from nobody",
     "From: =?iso-8859-2?Q?=D5?= <a@b> + reverse: a@b"},
    {"and no name for the next", "from Ő <a@b> + reset + from c@d", "From: c@d + reverse: c@d"},
    {"nor a charset", "subject 漢 + to a@b + attach photo + reset + html é",
     "Content-Type: text/html; charset=iso-8859-1"},
    {"a reset of everything",
     "to a@b + cc a@b + bcc a@b + subject 漢 + attach photo + logo photo + html 漢 + logo photo + "
     "reset",
     "golden: nothing + envelope: "},
    {"no reset of what is addressed", "to a@b + subject 漢 + subject  + html é",
     "Content-Type: text/html; charset=utf-8"},
    {"a name of a computer", "computer My-PC_01.x", "has: @MyPC01x>\r\n"},
    {"a name that gives none", "computer 漢-", "has: @unknown>\r\n"},
    {"a logo's identifier", "random 255 + logo photo",
     "has: Content-ID: <CID-ffffffff-ffff-4fff-bfff-ffffffffffff@TESTHOST>\r\n"},
    {"an account of success", "subject x", "log: Success"},
    {"line ends become one blank", "subject one \r\n\t two\n\n\rBcc: b  c\n",
     "Subject: one two Bcc: b  c"},
    {"nothing but line ends", "subject x + subject \r\n", "Subject: (none)"},
    {"line end in a name", "to Anna\r\nKis|a@b", "To: \"Anna Kis\" <a@b>"},
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
    {"a file that is not there", "attach! no/x.txt",
     "log: AddFileAttachment: + log: no/x.txt + log: file does not exist + "
     "log: Failed to create attachment from file. + log: Failed to add file attachment + "
     "Content-Type: text/plain; charset=us-ascii"},
    {"a folder", "attach! ", "log: file does not exist"},
    {"a logo that is not there", "logo! x.png",
     "log: AddRelatedFile: + log: loadIntoRelatedBody: + log: Failed to add related file + "
     "log: File does not exist, or cannot open file."},
    {"a file in ASCII", "attach a b.TXT",
     "has: text/plain; charset=us-ascii; name=\"a b.TXT\"\r\n"},
    {"a file in UTF 8", "attach u.csv", "has: text/csv; charset=utf-8; + has: \n=C5=91\r\n-"},
    {"a file of the system", "page 1250 + attach x.csv", "has: =windows-1250; + has: \n=F5\r\n-"},
    {"a file of nobody", "page 0 + attach x.csv", "has: =unknown-8bit; + has: \n=F5\r\n-"},
    {"a file not in UTF 8", "page 65001 + attach x.csv", "has: =unknown-8bit;"},
    {"a file in UTF 16", "attach le.csv", "has: application/octet-stream; + has: \n//56YQ==\r\n-"},
    {"in the other order", "attach be.htm", "has: application/octet-stream; + has: \n/v8BYQ==\r"},
    {"a message", "attach x.MHT", "has: application/octet-stream; + has: \neA==\r\n-"},
    {"a file of no type", "attach sub.txt/photo", "has: application/octet-stream; name=\"photo\""},
    {"an empty file", "attach empty.bin", "has: filename=\"empty.bin\"\r\n\r\n\r\n-"},
    {"a path with both separators", "attach sub.txt\\b.txt", "has: ; filename=\"b.txt\"\r\n"},
    {"such a path of a logo", "logo sub.txt\\b.txt", "has: ; name=\"b.txt\"\r\n"},
#ifndef _WIN32
    {"a backslash in a name", "attach sub.txt\\c.txt", "has: backslash\r\n"},
#endif
};

class Messages : public MimeTest, public testing::WithParamInterface<Row> {
protected:
    Messages() {
        const char* const small[][2] = {
            {"a b.TXT", "a=b"},       {"u.csv", "\xC5\x91"},     {"x.csv", "\xF5"},
            {"le.csv", "\xFF\xFEza"}, {"be.htm", "\xFE\xFF\1a"}, {"x.MHT", "x"},
            {"photo", "x"},           {"empty.bin", ""}};
        for (const auto& [name, content] : small) {
            if (GetParam().steps.find(name) != std::string::npos) file(name, content);
        }
        file("logo.png", {"\x89PNG\r\n\x1A\n\0\0\0\rIHDR", 16});
        file("számla 漢字.pdf", "%PDF");
        file("notes.txt", "first\r\n.second\r\nFrom here = there \r\nlast");
        std::filesystem::create_directory(pathOf(folder_ + "/sub.txt"));
        file("sub.txt/photo", "x");
        file("sub.txt/b.txt", "slash");
#ifndef _WIN32
        file("sub.txt\\c.txt", "backslash");
        file("sub.txt/c.txt", "slash");
#endif
        std::string bytes(1000, '\0');
        for (size_t i = 0; i < bytes.size(); ++i) {
            bytes[i] = static_cast<char>(i * 7);
        }
        file("data.bin", bytes);
    }

    static bool isGolden(const std::string& name, const std::string& message) {
        const std::string path = testDataPath("golden/" + name + ".eml");
        if (std::getenv("TV_WRITE_GOLDEN")) std::ofstream(path, std::ios::binary) << message;
        return message == fileText(path);
    }
};

TEST_P(Messages, areWhatTheirHostMadeOfThem) {
    TvEmail email;
    for (std::string each : linesOf(GetParam().steps, " + ")) {
        const size_t mark = each.find("! ");
        const bool fails = mark < each.find(' ');
        if (fails) each.erase(mark, 1);
        EXPECT_EQ(each.empty() || step(email, each), !fails) << each;
    }
    const std::string account = email.LastErrorText().bytes();
    const std::string message = sent(email);
    std::string envelope;
    for (const std::string& address : email.impl().getAllRecipientAddressesA()) {
        envelope += (envelope.empty() ? "" : " ") + address;
    }
    for (const std::string& each : linesOf(GetParam().wanted, " + ")) {
        const std::string what = each.substr(0, each.find(": "));
        const std::string value = each.substr(std::min(what.size() + 2, each.size()));
        const bool holds = what == "log"        ? account.find(value) != std::string::npos
                           : what == "no log"   ? account.find(value) == std::string::npos
                           : what == "has"      ? message.find(value) != std::string::npos
                           : what == "golden"   ? isGolden(value, message)
                           : what == "envelope" ? envelope == value
                           : what == "reverse"  ? email.impl().getSmtpReversePath(log_) == value
                                                : fieldOf(message, what) == value;
        EXPECT_TRUE(holds) << each << "\nis not so in\n" << account << message;
    }
}

std::string nameOf(const testing::TestParamInfo<Row>& row) {
    std::string name = row.param.name;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !isAsciiAlnum(c); }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Golden, Messages, testing::ValuesIn(kGolden), nameOf);
INSTANTIATE_TEST_SUITE_P(Rows, Messages, testing::ValuesIn(kRows), nameOf);

class Message : public MimeTest {
protected:
    std::unique_ptr<Email2> copy(bool autoMessageId = true) {
        return email_.impl().createEmailForSending(log_, autoMessageId);
    }

    _tvLogger log_;
    TvEmail email_;
};

TEST_F(Message, hasAnIdentifierAndADateOfEachSend) {
    const std::string first = sent(email_);
    clock_.local.hour++;
    const std::string second = sent(email_);
    EXPECT_NE(fieldOf(first, "Message-ID"), fieldOf(second, "Message-ID"));
    EXPECT_NE(fieldOf(first, "Date"), fieldOf(second, "Date"));
    EXPECT_EQ(copy(false)->header().get("Message-ID"), copy(false)->header().get("Message-ID"));
}

TEST_F(Message, sharesItsBodyWithWhatIsSent) {
    step(email_, "html x");
    EXPECT_EQ(copy()->body(), copy()->body());
}

TEST_F(Message, isNotSentWithoutRandomBytes) {
    random_.failAfter = random_.given + 25;  // one whole draw, then short ones
    EXPECT_NE(copy(), nullptr);
    EXPECT_EQ(copy(), nullptr);
    random_.bytes = {0};  // twenty zeros: one more draw, which is short
    random_.failAfter = random_.given + 25;
    EXPECT_EQ(copy(), nullptr);
    file("logo.png", "png");
    EXPECT_FALSE(step(email_, "logo logo.png"));
    std::string account;
    log_.getText(account);
    account += email_.LastErrorText().bytes();
    for (const char* reason : {"Failed to generate random bytes for email Message-ID\r\n",
                               "Failed to generate random bytes for email Message-ID.\r\n",
                               "Failed to generate Content-ID for related item (1)\r\n"}) {
        EXPECT_NE(account.find(reason), std::string::npos) << account;
    }
}

TEST_F(Message, takesTextInEitherEncoding) {
    email_.put_Subject("\xE9");
    EXPECT_EQ(fieldOf(sent(email_), "Subject"), "=?iso-8859-1?Q?=E9?=");
    email_.put_Utf8(true);
    email_.put_Subject("\xC3\xA1");
    EXPECT_EQ(fieldOf(sent(email_), "Subject"), "=?iso-8859-1?Q?=E1?=");
    EXPECT_FALSE(email_.AddTo(nullptr, nullptr));
    email_.put_From(nullptr);
    EXPECT_TRUE(email_.SetHtmlBody(nullptr));
    EXPECT_FALSE(email_.AddFileAttachment("\xC5\x91"));
    EXPECT_NE(email_.LastErrorText().bytes().find("path: \xC5\x91"), std::string::npos);
}

}  // namespace
}  // namespace tv::test
