// From the tree to bytes: body forms, dot-stuffing, excluded fields, streams that fail.
#include "mime/PlainBody.h"
#include "tests/fixtures/TestBytes.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

// Takes so many bytes and then no more.
class FailingStream final : public OutputStream {
public:
    explicit FailingStream(size_t limit) : limit_(limit) {}
    bool write(std::span<const uint8_t> bytes) override {
        if (bytes.size() > limit_) {
            ++failures;
            return false;
        }
        limit_ -= bytes.size();
        return true;
    }

    int failures = 0;

private:
    size_t limit_;
};

class RenderTest : public MimeTest {
protected:
    ClsEmail email_;
    LogNull log_;
    Email2 root_{log_, std::make_shared<_tvEmailCommon>()};
    XString out_;
};

TEST_F(RenderTest, PlainBodies) {
    const struct {
        const char* text;
        const char* repaired;
        const char* stuffed;
    } cases[] = {
        {"", "", ""},
        {"a\nb", "a\r\nb", "a\r\nb"},
        {"a\rb", "a\r\nb", "a\r\nb"},
        {"a\r\nb\r\n", "a\r\nb\r\n", "a\r\nb\r\n"},
        {"a\n\rb\r\r\n", "a\r\n\r\nb\r\n\r\n", "a\r\n\r\nb\r\n\r\n"},
        {".", ".", ".."},
        {".a\r\n.\r\n..\n.b.", ".a\r\n.\r\n..\r\n.b.", "..a\r\n..\r\n...\r\n..b."},
        {"\r.", "\r\n.", "\r\n.."},
        {"a.b\r\n", "a.b\r\n", "a.b\r\n"},
    };
    for (const auto& c : cases) {
        for (const bool stuffing : {false, true}) {
            StringStream out;
            EXPECT_TRUE(writePlainBody(c.text, true, stuffing, out));
            EXPECT_EQ(out.text, stuffing ? c.stuffed : c.repaired);
        }
    }
}

TEST_F(RenderTest, DotsAreStuffedOnRequestInPlainBodiesOnly) {
    const TempFile file("a.txt", ".file");
    email_.SetHtmlBody(text(".html\r\n."));
    email_.AddFileAttachment(text(file.path()), out_);
    const auto copy = email_.createEmailForSending(log_, true);
    const std::string plain = renderTree(*copy);
    const std::string stuffed = renderTree(*copy, {"TVX-", true, false});
    EXPECT_NE(plain.find("\r\n\r\n.html\r\n.\r\n--"), std::string::npos);
    EXPECT_NE(stuffed.find("\r\n\r\n..html\r\n..\r\n--"), std::string::npos);
    EXPECT_EQ(stuffed.size(), plain.size() + 2);
    EXPECT_NE(stuffed.find("\r\n\r\n=2Efile\r\n--"), std::string::npos);
}

TEST_F(RenderTest, EightBitPartsBecomeQuotedPrintableOnRequest) {
    root_.setBody(log_, "é", "text/plain");
    root_.setTransferEncoding("8bit");
    EXPECT_TRUE(renderTree(root_).ends_with("Encoding: 8bit\r\nX-Priority: 3 (Normal)\r\n\r\né"));
    const std::string message = renderTree(root_, {"", false, true});
    EXPECT_EQ(fieldOf(message, "Content-Transfer-Encoding"), "quoted-printable");
    EXPECT_TRUE(message.ends_with("\r\n\r\n=C3=A9"));
}

TEST_F(RenderTest, NoPartHasALineLongerThanMailAllows) {
    const auto bytes = std::make_shared<DataBuffer>();
    bytes->append(std::string(999, 'x'));
    for (const char* encoding : {"", "7bit", "8bit", "binary"}) {
        for (const char* type : {"text/plain", "application/x"}) {
            root_.setFileContent(type, 0, "f", bytes);
            root_.setTransferEncoding(encoding);
            const std::string message = renderTree(root_);
            EXPECT_EQ(fieldOf(message, "Content-Transfer-Encoding"), "quoted-printable");
            EXPECT_EQ(message.find(std::string(999, 'x')), std::string::npos);
        }
    }
}

TEST_F(RenderTest, AMissingEncodingIsNamed) {
    root_.setBody(log_, "é", "text/plain");
    root_.setTransferEncoding({});
    EXPECT_EQ(fieldOf(renderTree(root_), "Content-Transfer-Encoding"), "quoted-printable");
    root_.setBody(log_, "e", "text/plain");
    root_.setTransferEncoding({});
    EXPECT_EQ(fieldOf(renderTree(root_), "Content-Transfer-Encoding"), "(none)");
}

TEST_F(RenderTest, ExcludedFieldsStayIn) {
    root_.header().set("tvx-Secret", "1");
    root_.header().set("X-TVX-Not", "2");
    std::string message = renderTree(root_);
    EXPECT_EQ(fieldOf(message, "tvx-Secret"), "(none)");
    EXPECT_EQ(fieldOf(message, "X-TVX-Not"), "2");
    message = renderTree(root_, {});
    EXPECT_EQ(fieldOf(message, "tvx-Secret"), "1");
}

TEST_F(RenderTest, HeaderFields) {
    MimeHeader header;
    header.set("A", "1");
    header.set("B", " 2\r\n ");
    header.set("a", "3");
    EXPECT_EQ(header.fields().size(), 2u);
    EXPECT_EQ(header.fields()[0].name, "A");
    EXPECT_EQ(header.get("A"), "3");
    EXPECT_EQ(header.get("b"), "2");
    header.setBehind("A", "C", "4");
    EXPECT_EQ(header.fields()[1].name, "C");
    header.set("A", " ");
    EXPECT_FALSE(header.has("A"));
    for (const char* name : {"", "x y", "x:", "x\r\ny", "é"}) {
        header.set(name, "5");
    }
    EXPECT_EQ(header.fields().size(), 2u);
}

TEST_F(RenderTest, OtherAddressFieldsAreTakenApart) {
    root_.header().set("Reply-To", "José <a@b>; c@d");
    root_.header().set("Bcc", "undisclosed-recipients:; x@y");
    root_.header().set("Sender", "nobody");
    const std::string message = renderTree(root_);
    EXPECT_EQ(fieldOf(message, "Reply-To"), "=?utf-8?Q?Jos=C3=A9?= <a@b>, c@d");
    EXPECT_EQ(fieldOf(message, "Bcc"), "undisclosed-recipients:; x@y");
    EXPECT_EQ(fieldOf(message, "Sender"), "nobody");
}

TEST_F(RenderTest, NoByteOver127UnlessAskedFor) {
    root_.from().setAddress("ő@b");
    root_.rebuildFromField();
    root_.recipients(Email2::Recipients::To).emplace_back("", "é@b");
    root_.rebuildRecipientField(Email2::Recipients::To);
    root_.header().set("TVX-ReturnReceipt", "YES");
    root_.header().set("Reply-To", "A <é@b>");
    root_.header().set("Sender", "é@ő..b");
    const auto copy = root_.createForSending(log_, true);
    const std::string seven = renderTree(*copy);
    EXPECT_TRUE(isAscii(seven)) << seven;
    EXPECT_EQ(fieldOf(seven, "From"), "=?utf-8?Q?=C5=91=40b?= :;");
    EXPECT_EQ(fieldOf(seven, "Disposition-Notification-To"), "=?utf-8?Q?=C5=91=40b?= :;");
    EXPECT_EQ(fieldOf(seven, "Sender"), "=?utf-8?Q?=C3=A9@=C5=91..b?=");
    const std::string utf8 = renderTree(*copy, {.excludedPrefix = "TVX-", .utf8Headers = true});
    EXPECT_EQ(fieldOf(utf8, "From"), "ő@b");
    EXPECT_EQ(fieldOf(utf8, "To"), "é@b");
    EXPECT_EQ(fieldOf(utf8, "Reply-To"), "A <é@b>");
    EXPECT_EQ(fieldOf(utf8, "Disposition-Notification-To"), "<ő@b>");
}

TEST_F(RenderTest, InternalFieldsAreAppliedBeforeSending) {
    _tvLogger log;
    root_.from().setAddress("a@b");
    root_.header().set("TVX-ReturnReceipt", "YES");
    root_.header().set("TVX-Bounce-Address", "<bounce@b>");
    root_.header().set("TVX-Bcc", "Anna <x@y>");
    root_.header().set("Return-Path", "<r@b>");
    root_.header().set("DKIM-Signature", "v=1");
    const auto copy = root_.createForSending(log, true);
    const std::string message = renderTree(*copy, {});
    EXPECT_EQ(fieldOf(message, "Disposition-Notification-To"), "<a@b>");
    EXPECT_EQ(fieldOf(message, "Bcc"), "Anna <x@y>");
    EXPECT_EQ(message.find("TVX-"), std::string::npos);
    EXPECT_EQ(fieldOf(message, "Return-Path"), "(none)");
    std::string account;
    log.getText(account);
    for (const char* entry : {"Auto-generating Message-ID", "DKIM signed email MUST be sent"}) {
        EXPECT_NE(account.find(entry), std::string::npos) << account;
    }
    EXPECT_NE(renderTree(root_, {}).find("TVX-ReturnReceipt: YES"), std::string::npos);
}

TEST_F(RenderTest, ReversePathByItsSources) {
    _tvLogger log;
    log.setVerbose(true);
    const auto expect = [&](const char* path, const char* source) {
        std::string account;
        log.clearLog();
        EXPECT_EQ(root_.getSmtpReversePath(log), path);
        log.getText(account);
        EXPECT_NE(account.find(source), std::string::npos) << account;
    };
    expect("", "fromNothing");
    root_.header().set("Reply-To", "R <r@b>, s@b");
    expect("r@b", "fromReplyTo");
    root_.header().set("From", "F <f@b>");
    expect("f@b", "fromMimeHeader");
    root_.from().setAddress("a@b");
    expect("a@b", "fromAddr822");
    root_.header().set("return-path", " < p@b > ");
    expect("p@b", "fromReturnPath");
    root_.header().set("TVX-Bounce-Address", "<t@b>");
    expect("t@b", "fromTvxBounceAddr");
}

TEST_F(RenderTest, SizeIsWhatIsWritten) {
    const TempFile file("a.bin", std::string(200001, 'x'));
    email_.SetHtmlBody(text("<p>ő\r\n.x"));
    email_.AddFileAttachment(text(file.path()), out_);
    const auto copy = email_.createEmailForSending(log_, true);
    for (const RenderOptions& options : {RenderOptions{}, RenderOptions{"TVX-", true, true}}) {
        CountingStream counter;
        EXPECT_TRUE(copy->render(log_, counter, options));
        EXPECT_EQ(counter.count(), renderTree(*copy, options).size());
    }
}

// Wherever the stream fails: the render fails, and nothing is written after the failure.
TEST_F(RenderTest, AFailingStreamEndsTheRender) {
    const TempFile file("a.bin", std::string(200000, 'x'));
    email_.SetHtmlBody(text("<p>ő"));
    email_.AddFileAttachment(text(file.path()), out_);
    const auto copy = email_.createEmailForSending(log_, true);
    const size_t whole = renderTree(*copy).size();
    for (size_t limit = 0; limit < whole; limit += 997) {
        FailingStream stream(limit);
        EXPECT_FALSE(copy->render(log_, stream, {"TVX-"})) << limit;
        EXPECT_EQ(stream.failures, 1) << limit;
    }
    FailingStream enough(whole);
    EXPECT_TRUE(copy->render(log_, enough, {"TVX-"}));
}

}  // namespace
}  // namespace tv::test
