// The message as its host composes it: setters, their logs and failures, the envelope, a reset.
#include "mime/ClsEmail.h"

#include <chrono>

#include "mime/TvEmail.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

class ClsEmailTest : public MimeTest {
protected:
    bool logHas(std::string_view wanted) {
        return email_.lastErrorText().utf8().find(wanted) != std::string_view::npos;
    }
    std::string sentField(std::string_view name) { return fieldOf(renderSent(email_), name); }

    ClsEmail email_;
    XString out_;
};

std::string joined(const std::vector<std::string>& texts) {
    std::string out;
    for (const std::string& one : texts) {
        out += (out.empty() ? "" : " ") + one;
    }
    return out;
}

TEST_F(ClsEmailTest, ToAndCc) {
    const struct {
        const char* name;
        std::string address;
        const char* field;  // "(none)": refused
        const char* envelope;
    } rows[] = {
        {"", "a@b", "a@b", "a@b"},
        {"a@b", " a@b ", "a@b", "a@b"},
        {"Doe, John", "a@b", "\"Doe, John\" <a@b>", "a@b"},
        {"", "Anna <a@b.c>", "Anna <a@b.c>", "a@b.c"},
        {"Bea", "Anna <a@b.c>", "Bea <a@b.c>", "a@b.c"},
        {"", "a@x; b@y, \"C, D\" <c@z>", "a@x, b@y, \"C, D\" <c@z>", "a@x b@y c@z"},
        {"José", "a@b", "=?iso-8859-1?Q?Jos=E9?= <a@b>", "a@b"},
        {"", "a@Müller.de", "a@xn--mller-kva.de", "a@xn--mller-kva.de"},
        {"", "nobody", "nobody", "nobody"},
        {"", "Smith, Anna <a@b>; x y", "\"Smith, Anna\" <a@b>", "a@b"},
        {"", "x y", "(none)", ""},
        {"Anna", " \t", "(none)", ""},
        {"", "<>;", "(none)", ""},
        {"", std::string(701, 'a') + "@b", "(none)", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.address);
        ClsEmail email;
        const bool taken = row.field != std::string_view("(none)");
        EXPECT_EQ(email.AddTo(text(row.name), text(row.address)), taken);
        EXPECT_EQ(fieldOf(renderSent(email), "To"), row.field);
        EXPECT_EQ(joined(email.getAllRecipientAddressesA()), row.envelope);
        email.ClearTo();
        EXPECT_EQ(email.AddCC(text(row.name), text(row.address)), taken);
        EXPECT_EQ(fieldOf(renderSent(email), "Cc"), row.field);
        EXPECT_EQ(fieldOf(renderSent(email), "To"), "(none)");
        EXPECT_EQ(joined(email.getAllRecipientAddressesA()), row.envelope);
    }
}

TEST_F(ClsEmailTest, FailedAddSaysWhyAndChangesNothing) {
    EXPECT_FALSE(email_.AddTo(text("José"), text("")));
    EXPECT_TRUE(logHas("AddTo:") && logHas("name: José") &&
                logHas("No Email Address was provided"));
    EXPECT_FALSE(email_.AddCC(text(""), text(";")));
    EXPECT_TRUE(logHas("AddCC:") && logHas("invalid email address") && logHas("address: ;"));
    email_.SetHtmlBody(text("x"));
    EXPECT_EQ(sentField("Content-Type"), "text/html; charset=us-ascii");
}

// Each call costs the same, however many came before: these took half a minute.
TEST_F(ClsEmailTest, ManyRecipients) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 20000; ++i) {
        EXPECT_TRUE(email_.AddTo(text(""), text("Anna <a" + std::to_string(i) + "@b>")));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
    EXPECT_TRUE(sentField("To").ends_with("Anna <a19998@b>, Anna <a19999@b>"));
}

TEST_F(ClsEmailTest, CcIsLoggedOnlyWhenVerbose) {
    email_.AddCC(text(""), text("a@b"));
    EXPECT_FALSE(logHas("address: a@b"));
    email_.setVerboseLogging(true);
    email_.AddCC(text(""), text("a@b"));
    EXPECT_TRUE(logHas("address: a@b"));
}

TEST_F(ClsEmailTest, BccStaysInTheEnvelope) {
    EXPECT_TRUE(email_.AddBcc(text("é"), text("a@b; c@d")));
    EXPECT_TRUE(logHas("AddBcc:") && logHas("address: a@b; c@d"));
    EXPECT_FALSE(email_.AddBcc(text(""), text("")));
    EXPECT_EQ(sentField("Bcc"), "(none)");
    EXPECT_EQ(sentField("Content-Type"), "text/plain; charset=us-ascii");
    EXPECT_EQ(joined(email_.getAllRecipientAddressesA()), "a@b c@d");

    email_.setUncommonOptions(text("x,UseBccHeader"));
    EXPECT_TRUE(email_.AddBcc(text(""), text("e@f")));
    EXPECT_EQ(decodeWords(sentField("Bcc")), "é");
    email_.ClearBcc();
    EXPECT_EQ(sentField("Bcc"), "(none)");
    EXPECT_TRUE(email_.getAllRecipientAddressesA().empty());
}

TEST_F(ClsEmailTest, EnvelopeIsToThenCcThenBcc) {
    email_.AddBcc(text(""), text("1@b"));
    email_.AddCC(text(""), text("2@b"));
    email_.AddTo(text(""), text("3@b"));
    email_.AddTo(text(""), text("4@b"));
    EXPECT_EQ(joined(email_.getAllRecipientAddressesA()), "3@b 4@b 2@b 1@b");
}

TEST_F(ClsEmailTest, From) {
    LogNull log;
    const struct {
        std::string address;
        const char* field;
        const char* reversePath;
    } steps[] = {
        {"nobody", "(none)", ""},
        {" a@b ", "a@b", "a@b"},
        {"Anna <c@d>", "Anna <c@d>", "c@d"},
        {"e@f", "Anna <e@f>", "e@f"},  // the name stays
        {"without", "Anna <e@f>", "e@f"},
        {"", "Anna <e@f>", "e@f"},
        {"x@é.hu", "Anna <x@xn--9ca.hu>", "x@xn--9ca.hu"},
        {std::string(2000, 'a') + "@b", "(none)", ""},  // never the sender before
        {"g@h", "g@h", "g@h"},
        {"x y@z", "(none)", ""},
    };
    for (const auto& step : steps) {
        email_.put_FromAddress(text(step.address));
        EXPECT_EQ(sentField("From"), step.field) << step.address;
        EXPECT_EQ(email_.getSmtpReversePath(log), step.reversePath) << step.address;
    }
}

TEST_F(ClsEmailTest, FieldsKeepTheOrderOfTheirFirstSetting) {
    email_.put_Subject(text("one"));
    email_.AddCC(text(""), text("c@d"));
    email_.put_FromAddress(text("a@b"));
    email_.put_Subject(text("two"));
    const std::string message = renderSent(email_);
    EXPECT_NE(
        message.find("X-Priority: 3 (Normal)\r\nSubject: two\r\nCc: c@d\r\nFrom: a@b\r\n\r\n"),
        std::string::npos)
        << message;
}

TEST_F(ClsEmailTest, LineEndsOfValuesBecomeOneBlank) {
    const std::pair<std::string_view, const char*> rows[] = {
        {{"a\r\nBcc: b\0\nc", 12}, "a Bcc: b c"},
        {"one \r\n\t two\n\n\rthree  four\n", "one two three  four"},
        {"\r\n", "(none)"},
    };
    for (const auto& [subject, field] : rows) {
        email_.put_Subject(text(subject));
        EXPECT_EQ(sentField("Subject"), field);
    }
    email_.AddTo(text("Anna\r\nKis"), text("a@b"));
    EXPECT_EQ(sentField("To"), "\"Anna Kis\" <a@b>");
}

TEST_F(ClsEmailTest, TheCharsetLadderHoldsForTheWholeMessage) {
    email_.SetHtmlBody(text("<meta charset=\"utf-8\">plain"));
    EXPECT_TRUE(logHas("Choosing us-ascii because body is 7bit"));
    EXPECT_TRUE(logHas("existingHtmlMetaCharset: utf-8"));
    std::string message = renderSent(email_);
    EXPECT_NE(message.find("<meta charset=\"us-ascii\">"), std::string::npos);

    email_.put_Subject(text("é"));
    message = renderSent(email_);
    EXPECT_EQ(fieldOf(message, "Subject"), "=?utf-8?Q?=C3=A9?=");
    EXPECT_EQ(fieldOf(message, "Content-Type"), "text/html; charset=utf-8");
    EXPECT_NE(message.find("<meta charset=\"utf-8\">"), std::string::npos);

    ClsEmail second;
    second.put_Subject(text("árvíz"));
    second.SetHtmlBody(text("<meta charset=\"utf-8\">tükör"));
    message = renderSent(second);
    EXPECT_EQ(fieldOf(message, "Subject"), "=?iso-8859-1?Q?=E1rv=EDz?=");
    EXPECT_EQ(fieldOf(message, "Content-Type"), "text/html; charset=iso-8859-1");
    EXPECT_TRUE(message.ends_with("<meta charset=3D\"iso-8859-1\">t=FCk=F6r")) << message;
    second.put_Subject(text("tűr"));
    message = renderSent(second);
    EXPECT_EQ(fieldOf(message, "Content-Type"), "text/html; charset=utf-8");
    EXPECT_TRUE(message.ends_with("<meta charset=3D\"utf-8\">t=C3=BCk=C3=B6r")) << message;
}

TEST_F(ClsEmailTest, LongLinesAskForQuotedPrintable) {
    const std::string line(998, 'x');
    for (const std::string& html : {line, line + "\r\n" + line, line + "\n" + line}) {
        email_.SetHtmlBody(text(html));
        EXPECT_EQ(sentField("Content-Transfer-Encoding"), "7bit");
        email_.SetHtmlBody(text(html + "y"));
        EXPECT_EQ(sentField("Content-Transfer-Encoding"), "quoted-printable");
    }
    email_.SetHtmlBody(text(line + line + "yyyy"));
    EXPECT_TRUE(logHas("because the longest HTML line length is 2000 chars or more."));
    EXPECT_EQ(sentField("Content-Transfer-Encoding"), "quoted-printable");
    email_.SetHtmlBody(text("short again"));
    EXPECT_EQ(sentField("Content-Transfer-Encoding"), "7bit");
}

TEST_F(ClsEmailTest, AttachmentTypesAndEncodings) {
    const struct {
        const char* fileName;
        const char* content;
        const char* type;
        const char* charset;
        const char* encoded;
        const char* encoding = "quoted-printable";
        uint32_t page = 1252;  // of text files on this system
    } cases[] = {
        {"report.TXT", "a=b", "text/plain", " charset=us-ascii;", "a=3Db"},
        {"u.csv", "\xC5\x91", "text/csv", " charset=utf-8;", "=C5=91"},
        {"ansi.csv", "\xF5", "text/csv", " charset=windows-1252;", "=F5"},
        {"any.csv", "\xF5", "text/csv", " charset=unknown-8bit;", "=F5", "quoted-printable", 0},
        {"no.csv", "\xF5", "text/csv", " charset=unknown-8bit;", "=F5", "quoted-printable", 65001},
        {"le.csv", "\xFF\xFEza", "application/octet-stream", "", "//56YQ==", "base64"},
        {"be.htm", "\xFE\xFF\1a", "application/octet-stream", "", "/v8BYQ==", "base64"},
        {"page.mht", "a", "application/octet-stream", "", "YQ==", "base64"},
        {"page.MHTML", "a", "application/octet-stream", "", "YQ==", "base64"},
        {"news.nws", "a", "application/octet-stream", "", "YQ==", "base64"},
        {"mail.eml", "a", "application/octet-stream", "", "YQ==", "base64"},
        {"photo", "\x01\x02\x03", "application/octet-stream", "", "AQID", "base64"},
        {"empty.bin", "", "application/octet-stream", "", "", "base64"},
    };
    for (const auto& c : cases) {
        const TempFile file(c.fileName, c.content);
        host_.textFilePage = c.page;
        ClsEmail email;
        email.put_Subject(text("漢"));  // the message's charset is no affair of a file
        EXPECT_TRUE(email.AddFileAttachment(text(file.path()), out_)) << c.fileName;
        EXPECT_EQ(out_.utf8(), c.type);
        const std::string message = renderSent(email);
        const std::string name = "name=\"" + std::string(c.fileName) + "\"\r\n";
        const std::string part = "Content-Type: " + std::string(c.type) + ";" + c.charset + " " +
                                 name + "Content-Transfer-Encoding: " + c.encoding +
                                 "\r\nContent-Disposition: attachment; file" + name + "\r\n" +
                                 c.encoded + "\r\n------";
        EXPECT_NE(message.find(part), std::string::npos) << part << "is not in\n" << message;
    }
    plat::replaceSysHost(nullptr);
#ifdef _WIN32
    EXPECT_EQ(plat::sysHost().textFileCodePage(), plat::sysHost().ansiCodePage());
#else
    EXPECT_EQ(plat::sysHost().textFileCodePage(), 0u);
#endif
}

TEST_F(ClsEmailTest, FilesThatCannotBeRead) {
    const TempFile file("a.txt", "x");
    for (const std::string& path : {file.path() + ".no", file.directory(), std::string(),
                                    std::string("/no/such/dir/x.txt")}) {
        EXPECT_FALSE(email_.AddFileAttachment(text(path), out_)) << path;
        EXPECT_TRUE(logHas("AddFileAttachment:") && logHas(path) && logHas("file does not exist") &&
                    logHas("Failed to create attachment from file.") &&
                    logHas("Failed to add file attachment"))
            << email_.lastErrorText().utf8();
        EXPECT_FALSE(email_.AddRelatedFile(text(path), out_)) << path;
        EXPECT_TRUE(logHas("AddRelatedFile:") && logHas("loadIntoRelatedBody:") &&
                    logHas("File does not exist, or cannot open file.") &&
                    logHas("Failed to add related file"));
    }
    EXPECT_EQ(sentField("Content-Type"), "text/plain; charset=us-ascii");
}

TEST_F(ClsEmailTest, FileNamesFromPathsOfBothKinds) {
    const TempFile file("a b.bin", "x");
    std::string mixed = file.path();
    email_.AddFileAttachment(text(mixed), out_);
    EXPECT_NE(renderSent(email_).find("filename=\"a b.bin\""), std::string::npos);
#ifdef _WIN32
    std::replace(mixed.begin(), mixed.end(), '/', '\\');
    email_.AddFileAttachment(text(mixed), out_);
    EXPECT_EQ(renderSent(email_).find("filename=\"C:"), std::string::npos);
#endif
}

// A path may mix separators, and on POSIX a name may have a backslash in it.
TEST_F(ClsEmailTest, PathsAreTriedAsGivenAndThenWithSlashes) {
    const TempFile file("b.txt", "x");
    const std::string glued = file.directory() + "\\b.txt";
    XString id;
    EXPECT_TRUE(email_.AddFileAttachment(text(glued), out_));
    EXPECT_TRUE(email_.AddRelatedFile(text(glued), id));
#ifndef _WIN32
    const TempFile odd("a\\b.txt", "backslash");
    std::filesystem::create_directory(odd.directory() + "/a");
    std::ofstream(odd.directory() + "/a/b.txt") << "slash";
    EXPECT_TRUE(email_.AddFileAttachment(text(odd.path()), out_));
    EXPECT_NE(renderSent(email_).find("backslash"), std::string::npos);
#endif
}

TEST_F(ClsEmailTest, NonAsciiPathsOpen) {
    const TempFile file("ő 漢.pdf", "pdf");
    ASSERT_TRUE(email_.AddFileAttachment(text(file.path()), out_));
    const std::string message = renderSent(email_);
    EXPECT_NE(message.find("filename*=utf-8''%C5%91%20%E6%BC%A2.pdf\r\n"), std::string::npos);
    EXPECT_NE(message.find("name=\"=?utf-8?Q?=C5=91_=E6=BC=A2.pdf?=\""), std::string::npos);
}

TEST_F(ClsEmailTest, RelatedItemsGetAContentId) {
    const TempFile file("logo.png", "png");
    random_.bytes = std::vector<uint8_t>(16, 0xFF);
    ASSERT_TRUE(email_.AddRelatedFile(text(file.path()), out_));
    EXPECT_EQ(out_.utf8(), "CID-ffffffff-ffff-4fff-bfff-ffffffffffff@TESTHOST");
    EXPECT_NE(renderSent(email_).find("Content-Type: image/png; name=\"logo.png\"\r\n"
                                      "Content-Transfer-Encoding: base64\r\n"
                                      "Content-ID: <" +
                                      std::string(out_.utf8()) + ">\r\n\r\ncG5n\r\n"),
              std::string::npos);
    random_.failAfter = 0;
    EXPECT_FALSE(email_.AddRelatedFile(text(file.path()), out_));
    EXPECT_TRUE(logHas("Failed to generate Content-ID for related item (1)"));
}

TEST_F(ClsEmailTest, HostPartOfIdentifiers) {
    const struct {
        const char* computer;
        const char* host;
    } cases[] = {{"My-PC_01.x", "@MyPC01x>"}, {"", "@unknown>"}, {"漢-", "@unknown>"}};
    for (const auto& c : cases) {
        host_.name = c.computer;
        EXPECT_TRUE(sentField("Message-ID").ends_with(c.host));
    }
}

TEST_F(ClsEmailTest, EverySendHasItsOwnIdentifierAndDate) {
    const std::string first = renderSent(email_);
    clock_.local.hour = 10;
    const std::string second = renderSent(email_);
    EXPECT_NE(fieldOf(first, "Message-ID"), fieldOf(second, "Message-ID"));
    EXPECT_NE(fieldOf(first, "Date"), fieldOf(second, "Date"));
    _tvLogger log;
    const auto kept = email_.createEmailForSending(log, false);
    const auto keptAgain = email_.createEmailForSending(log, false);
    ASSERT_TRUE(kept && keptAgain);
    EXPECT_EQ(kept->header().get("Message-ID"), keptAgain->header().get("Message-ID"));
}

TEST_F(ClsEmailTest, NoRandomBytesNoSend) {
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
    log.clearLog();
    EXPECT_EQ(email_.createEmailForSending(log, true), nullptr);
    log.getText(account);
    EXPECT_NE(account.find("Failed to generate random bytes for email Message-ID.\r\n"),
              std::string::npos);
}

// The order in which a host empties a message for the next one.
void reset(TvEmail& email) {
    email.ClearBcc();
    email.ClearCC();
    email.ClearTo();
    email.KeepFrom();
    email.put_Subject("");
    email.RemovePlainTextAlternative();
    email.RemoveHtmlAlternative();
    email.DropAttachments();
    email.DropRelatedItems();
}

TEST_F(ClsEmailTest, AResetMessageIsAFreshOne) {
    const TempFile logo("logo.png", "png");
    const TempFile attachment("a.txt", "x");
    for (int order = 0; order < 16; ++order) {
        TvEmail email;
        email.put_Utf8(true);
        email.put_From("s@b");
        random_.given = 40;
        const std::string fresh = renderSent(email.impl());
        TvString id;
        if (order & 1) email.AddFileAttachment(attachment.path().c_str());
        if (order & 2) email.AddRelatedFile(logo.path().c_str(), id);
        if (order & 4) email.SetHtmlBody("<p>漢");
        if (order & 8) email.AddRelatedFile(logo.path().c_str(), id);
        email.AddFileAttachment(attachment.path().c_str());
        email.put_Subject("漢");
        email.AddTo("", "a@b");
        email.AddCC("", "a@b");
        email.AddBcc("", "a@b");
        reset(email);
        random_.given = 40;
        EXPECT_EQ(renderSent(email.impl()), fresh) << order;
        EXPECT_TRUE(email.impl().getAllRecipientAddressesA().empty());

        email.SetHtmlBody("<p>é");
        EXPECT_EQ(fieldOf(renderSent(email.impl()), "Content-Type"),
                  "text/html; charset=iso-8859-1");
    }
}

TEST_F(ClsEmailTest, TheSenderSurvivesAResetUntilAnotherIsNamed) {
    TvEmail email;
    email.put_Utf8(true);
    email.put_From("Ő <a@b>");
    for (const char* next : {"", "nobody", "c@d", "e@f"}) {
        email.put_Subject("漢");
        reset(email);
        email.put_From(next);
        const std::string message = renderSent(email.impl());
        const bool other = *next == 'c' || *next == 'e';
        EXPECT_EQ(fieldOf(message, "From"), other ? next : "=?iso-8859-2?Q?=D5?= <a@b>") << next;
    }
}

TEST_F(ClsEmailTest, ThePreparedCopyIsNotTouchedByWhatFollows) {
    LogNull log;
    email_.put_Subject(text("é"));
    email_.SetHtmlBody(text("é"));
    const auto copy = email_.createEmailForSending(log, true);
    const std::string before = renderTree(*copy);
    email_.put_Subject(text("漢"));
    email_.RemoveHtmlAlternative();
    EXPECT_EQ(renderTree(*copy), before);
}

TEST_F(ClsEmailTest, BodiesAreSharedWithTheCopy) {
    const TempFile file("a.bin", std::string(100000, 'x'));
    LogNull log;
    email_.AddFileAttachment(text(file.path()), out_);
    const auto first = email_.createEmailForSending(log, true);
    const auto second = email_.createEmailForSending(log, true);
    EXPECT_EQ(first->children()[1]->body()->data(), second->children()[1]->body()->data());
}

TEST_F(ClsEmailTest, HostTextInEitherEncoding) {
    TvEmail email;
    email.put_Utf8(false);
    email.put_Subject("\xE9");
    EXPECT_EQ(fieldOf(renderSent(email.impl()), "Subject"), "=?iso-8859-1?Q?=E9?=");
    email.put_Utf8(true);
    email.put_Subject("\xC3\xA1");
    EXPECT_EQ(fieldOf(renderSent(email.impl()), "Subject"), "=?iso-8859-1?Q?=E1?=");
    EXPECT_FALSE(email.AddTo(nullptr, nullptr));
    email.put_From(nullptr);
    EXPECT_TRUE(email.SetHtmlBody(nullptr));
    EXPECT_FALSE(email.AddFileAttachment("\xC5\x91"));
    EXPECT_NE(email.LastErrorText().bytes().find("path: \xC5\x91"), std::string::npos);
}

}  // namespace
}  // namespace tv::test
