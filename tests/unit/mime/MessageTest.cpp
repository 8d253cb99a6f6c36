// The message as its host composes it: setters, their logs and failures, the envelope, a reset.
#include "log/tvLogger.h"
#include "mime/TvEmail.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

class Message : public MimeTest {
protected:
    bool logHas(std::string_view wanted) {
        return email_.lastErrorText().utf8().find(wanted) != std::string_view::npos;
    }

    ClsEmail email_;
};

// Steps as MimeTest has them, with "!" behind the verb of one that fails. What then holds: "log:"
// and "has:" name a part of the last account and of the message, "no log:" one that is not there,
// "ends:" the end of the message, anything else is a field, the envelope or the reverse path.
struct Row {
    const char* name;
    std::vector<std::string> steps, wanted;
};

const std::string kX998(998, 'x');
const std::string kNul(1, '\0');
const std::string kMeta = "html <meta charset=\"utf-8\">";

const Row kRows[] = {
    {"addresses alone", {"to  a@b ", "cc c@d"}, {"To: a@b", "Cc: c@d", "envelope: a@b c@d"}},
    {"a name", {"to Doe, John|a@b"}, {"To: \"Doe, John\" <a@b>", "envelope: a@b"}},
    {"a name that is the address", {"to a@b| a@b "}, {"To: a@b"}},
    {"the name is the first one's", {"cc Bea|Anna <a@b>; c@d"}, {"Cc: Bea <a@b>, c@d"}},
    {"a local name", {"to nobody"}, {"To: nobody", "envelope: nobody"}},
    {"ASCII for the envelope", {"to a@Müller.de"}, {"envelope: a@xn--mller-kva.de"}},
    {"part of a text is no address",
     {"to \"Smith, Anna\" <a@b>; x y"},
     {"To: \"Smith, Anna\" <a@b>", "envelope: a@b", "log: leftOutAsNoAddress: x y"}},
    {"a refused name has no say in the charset",
     {"to! José|x y", "html x", "to! José|;"},
     {"To: (none)", "Content-Type: text/html; charset=us-ascii", "log: AddTo:", "log: name: José",
      "log: address: ;", "log: invalid email address"}},
    {"no address", {"cc! Anna| \t"}, {"log: AddCC:", "log: No Email Address was provided"}},
    {"the longest address", {"to " + kX998.substr(302) + "@b.c"}, {}},
    {"a longer one", {"to! " + kX998.substr(301) + "@b.c"}, {"To: (none)"}},
    {"to before cc before bcc, in their order",
     {"bcc é|1@b; 2@b", "cc 3@b", "to 4@b", "to 5@b"},
     {"envelope: 4@b 5@b 3@b 1@b 2@b", "Bcc: (none)",
      "Content-Type: text/plain; charset=us-ascii"}},
    {"blind copies are logged", {"bcc a@b; c@d"}, {"log: AddBcc:", "log: address: a@b; c@d"}},
    {"blind copies that are shown",
     {"options x,UseBccHeader", "bcc é|a@b"},
     {"Bcc: =?utf-8?Q?=C3=A9?= <a@b>"}},
    {"copies are not logged", {"cc a@b"}, {"no log: address: a@b"}},
    {"copies are logged at length", {"verbose", "cc a@b"}, {"log: address: a@b"}},

    {"sender without address", {"from nobody"}, {"From: (none)", "reverse: "}},
    {"sender with name", {"from  Anna <c@d> "}, {"From: Anna <c@d>", "reverse: c@d"}},
    {"the name stays", {"from Anna <c@d>", "from e@f"}, {"From: Anna <e@f>", "reverse: e@f"}},
    {"what is no address changes nothing", {"from Anna <c@d>", "from x", "from"}, {"reverse: c@d"}},
    {"what cannot be one takes it away",
     {"from Anna <c@d>", "from x y@z"},
     {"From: (none)", "reverse: ", "log: invalid email address"}},
    {"and the name", {"from Anna <c@d>", "from x y@z", "from g@h"}, {"From: g@h"}},
    {"sender in ASCII", {"from x@é.hu"}, {"From: x@xn--9ca.hu", "reverse: x@xn--9ca.hu"}},
    {"a reset keeps the sender",
     {"from Ő <a@b>", "subject 漢", "reset", "from", "from nobody"},
     {"From: =?iso-8859-2?Q?=D5?= <a@b>", "reverse: a@b"}},
    {"and no name for the next one",
     {"from Ő <a@b>", "reset", "from c@d"},
     {"From: c@d", "reverse: c@d"}},
    {"a charset of its own after a reset",
     {"subject 漢", "to a@b", "attach photo", "reset", "html é"},
     {"Content-Type: text/html; charset=iso-8859-1"}},

    {"line ends become one blank",
     {"subject one \r\n\t two\n\n\rBcc: b" + kNul + "\nc  four\n"},
     {"Subject: one two Bcc: b c  four"}},
    {"nothing but line ends", {"subject x", "subject \r\n"}, {"Subject: (none)"}},
    {"line end in a name", {"to Anna\r\nKis|a@b"}, {"To: \"Anna Kis\" <a@b>"}},

    {"ASCII",
     {kMeta + "plain"},
     {"log: Choosing us-ascii because body is 7bit", "log: existingHtmlMetaCharset: utf-8",
      "ends: <meta charset=\"us-ascii\">plain"}},
    {"the subject raises it",
     {kMeta + "plain", "subject é"},
     {"Subject: =?utf-8?Q?=C3=A9?=", "Content-Type: text/html; charset=utf-8",
      "ends: <meta charset=\"utf-8\">plain"}},
    {"Latin 1 is left",
     {"subject á", kMeta + "ö", "subject tűr"},
     {"Content-Type: text/html; charset=utf-8", "ends: <meta charset=3D\"utf-8\">=C3=B6"}},

    {"the longest line",
     {"html " + kX998 + "\r\n" + kX998 + "\n" + kX998 + "\r" + kX998},
     {"Content-Transfer-Encoding: 7bit"}},
    {"one longer", {"html \r" + kX998 + "y"}, {"Content-Transfer-Encoding: quoted-printable"}},
    {"a very long line",
     {"html " + kX998 + kX998 + "yyyy"},
     {"log: because the longest HTML line length is 2000 chars or more."}},
    {"short again", {"html " + kX998 + "y", "html x"}, {"Content-Transfer-Encoding: 7bit"}},

    {"a file that is not there",
     {"attach! no/x.txt"},
     {"log: AddFileAttachment:", "log: no/x.txt", "log: file does not exist",
      "log: Failed to create attachment from file.", "log: Failed to add file attachment",
      "Content-Type: text/plain; charset=us-ascii"}},
    {"a folder", {"attach! "}, {"log: file does not exist"}},
    {"a logo that is not there",
     {"logo! x.png"},
     {"log: AddRelatedFile:", "log: loadIntoRelatedBody:", "log: Failed to add related file",
      "log: File does not exist, or cannot open file."}},
    {"ASCII", {"attach a b.TXT"}, {"has: text/plain; charset=us-ascii; name=\"a b.TXT\"\r\n"}},
    {"UTF-8", {"attach u.csv"}, {"has: text/csv; charset=utf-8;", "has: \n=C5=91\r\n-"}},
    {"as the system has it", {"page 1250", "attach x.csv"}, {"has: =windows-1250;", "has: \n=F5"}},
    {"as nobody has it", {"page 0", "attach x.csv"}, {"has: charset=unknown-8bit;", "has: \n=F5"}},
    {"nor UTF-8", {"page 65001", "attach x.csv"}, {"has: charset=unknown-8bit;", "has: \n=F5"}},
    {"UTF-16", {"attach le.csv"}, {"has: application/octet-stream;", "has: \n//56YQ==\r\n-"}},
    {"its other order", {"attach be.htm"}, {"has: application/octet-stream;", "has: \n/v8BYQ==\r"}},
    {"a message", {"attach x.MHT"}, {"has: application/octet-stream;", "has: \neA==\r\n-"}},
    {"a file of no type", {"attach photo"}, {"has: application/octet-stream; name=\"photo\""}},
    {"an empty file", {"attach empty.bin"}, {"has: filename=\"empty.bin\"\r\n\r\n\r\n-"}},
    {"a path with both separators", {"attach sub\\b.txt"}, {"has: ; filename=\"b.txt\"\r\n"}},
    {"a logo's", {"logo sub\\b.txt"}, {"has: ; name=\"b.txt\"\r\n"}},
#ifndef _WIN32
    {"a backslash in a name", {"attach sub\\c.txt"}, {"has: backslash\r\n"}},
#endif
};

TEST_F(Message, isWhatItsHostMadeOfIt) {
    const char* const files[][2] = {
        {"a b.TXT", "a=b"},       {"u.csv", "\xC5\x91"},     {"x.csv", "\xF5"},
        {"le.csv", "\xFF\xFEza"}, {"be.htm", "\xFE\xFF\1a"}, {"x.MHT", "x"},
        {"photo", "x"},           {"empty.bin", ""}};
    for (const auto& [name, content] : files) {
        file(name, content);
    }
    std::filesystem::create_directory(pathOf(folder_ + "/sub"));
    file("sub/b.txt", "x");
    file("sub/c.txt", "slash");
#ifndef _WIN32
    file("sub\\c.txt", "backslash");
#endif
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        ClsEmail email;
        for (std::string each : row.steps) {
            const size_t mark = each.find("! ");
            const bool fails = mark < each.find(' ');
            if (fails) each.erase(mark, 1);
            EXPECT_EQ(step(email, each), !fails) << each;
        }
        const std::string account(email.lastErrorText().utf8());
        const std::string message = sent(email);
        for (const std::string& each : row.wanted) {
            const std::string what = each.substr(0, each.find(": "));
            const std::string value = each.substr(what.size() + 2);
            std::string envelope;
            for (const std::string& address : email.getAllRecipientAddressesA()) {
                envelope += (envelope.empty() ? "" : " ") + address;
            }
            const bool holds = what == "log"        ? account.find(value) != std::string::npos
                               : what == "no log"   ? account.find(value) == std::string::npos
                               : what == "has"      ? message.find(value) != std::string::npos
                               : what == "ends"     ? message.ends_with(value)
                               : what == "envelope" ? envelope == value
                               : what == "reverse"  ? email.getSmtpReversePath(log_) == value
                                                    : fieldOf(message, what) == value;
            EXPECT_TRUE(holds) << each << "\nis not so in\n" << account << message;
        }
    }
}

TEST_F(Message, namesLogosByRandomUuids) {
    file("logo.png", "png");
    random_.bytes = {0xFF};
    ASSERT_TRUE(step(email_, "logo logo.png"));
    EXPECT_EQ(out_.utf8(), "CID-ffffffff-ffff-4fff-bfff-ffffffffffff@TESTHOST");
    random_.failAfter = 0;
    EXPECT_FALSE(step(email_, "logo logo.png"));
    EXPECT_TRUE(logHas("Failed to generate Content-ID for related item (1)"));
}

TEST_F(Message, hasAnIdentifierAndADateOfEachSend) {
    const char* const hosts[][2] = {{"My-PC_01.x", "@MyPC01x>"}, {"漢-", "@unknown>"}};
    for (const auto& [computer, host] : hosts) {
        host_.name = computer;
        const std::string first = sent(email_);
        clock_.local.hour++;
        const std::string second = sent(email_);
        EXPECT_TRUE(fieldOf(first, "Message-ID").ends_with(host));
        EXPECT_NE(fieldOf(first, "Message-ID"), fieldOf(second, "Message-ID"));
        EXPECT_NE(fieldOf(first, "Date"), fieldOf(second, "Date"));
    }
    EXPECT_EQ(fieldOf(rendered(*email_.createEmailForSending(log_, false)), "Message-ID"),
              fieldOf(rendered(*email_.createEmailForSending(log_, false)), "Message-ID"));
}

TEST_F(Message, isNotSentWithoutRandomBytes) {
    _tvLogger log;
    std::string account;
    random_.failAfter = random_.given + 25;  // one whole draw, then short ones
    EXPECT_NE(email_.createEmailForSending(log, true), nullptr);
    EXPECT_EQ(email_.createEmailForSending(log, true), nullptr);
    log.getText(account);
    EXPECT_NE(account.find("Failed to generate random bytes for email Message-ID\r\n"),
              std::string::npos);
    random_.bytes = {0};  // twenty zeros: one more draw, which is short
    random_.failAfter = random_.given + 25;
    EXPECT_EQ(email_.createEmailForSending(log, true), nullptr);
    log.getText(account);
    EXPECT_NE(account.find("Failed to generate random bytes for email Message-ID.\r\n"),
              std::string::npos);
}

TEST_F(Message, isAFreshOneAfterAReset) {
    file("logo.png", "png");
    const char* const parts[] = {"attach logo.png", "logo logo.png", "html <p>漢", "logo logo.png"};
    for (unsigned order = 0; order < 16; ++order) {
        ClsEmail email;
        step(email, "from s@b");
        random_.given = 40;
        const std::string fresh = sent(email);
        for (unsigned i = 0; i < 4; ++i) {
            EXPECT_TRUE((order >> i & 1) == 0 || step(email, parts[i]));
        }
        for (const char* each : {parts[0], "subject 漢", "to a@b", "cc a@b", "bcc a@b", "reset"}) {
            EXPECT_TRUE(step(email, each));
        }
        random_.given = 40;
        EXPECT_EQ(sent(email), fresh) << order;
        EXPECT_TRUE(email.getAllRecipientAddressesA().empty());
    }
}

TEST_F(Message, sharesItsBodiesWithACopyThatStandsForItself) {
    file("a.bin", "x");
    for (const char* each : {"subject é", "html é", "attach a.bin"}) {
        step(email_, each);
    }
    const auto first = email_.createEmailForSending(log_, true);
    const auto second = email_.createEmailForSending(log_, true);
    EXPECT_EQ(first->children()[1]->body()->data(), second->children()[1]->body()->data());
    const std::string before = rendered(*first);
    step(email_, "subject 漢");
    email_.RemoveHtmlAlternative();
    EXPECT_EQ(rendered(*first), before);
}

TEST_F(Message, takesTextInEitherEncoding) {
    TvEmail email;
    email.put_Utf8(false);
    email.put_Subject("\xE9");
    EXPECT_EQ(fieldOf(sent(email.impl()), "Subject"), "=?iso-8859-1?Q?=E9?=");
    email.put_Utf8(true);
    email.put_Subject("\xC3\xA1");
    EXPECT_EQ(fieldOf(sent(email.impl()), "Subject"), "=?iso-8859-1?Q?=E1?=");
    EXPECT_FALSE(email.AddTo(nullptr, nullptr));
    EXPECT_TRUE(email.SetHtmlBody(nullptr));
    EXPECT_FALSE(email.AddFileAttachment("\xC5\x91"));
    EXPECT_NE(email.LastErrorText().bytes().find("path: \xC5\x91"), std::string::npos);
}

}  // namespace
}  // namespace tv::test
