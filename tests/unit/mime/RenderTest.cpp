// From the tree to bytes: body forms, dot-stuffing, excluded fields, streams that fail.
#include "mime/PlainBody.h"
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

class RecordingStream final : public OutputStream {
public:
    bool write(std::span<const uint8_t> bytes) override {
        sizes.push_back(bytes.size());
        return true;
    }
    std::vector<size_t> sizes;
};

class RenderTest : public MimeTest {
protected:
    std::string bodyOf(const ClsEmail& email) {
        const std::string message = renderSent(email);
        return message.substr(message.find("\r\n\r\n") + 4);
    }

    ClsEmail email_;
    LogNull log_;
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
            DataBuffer buffer;
            BufferStream out(buffer);
            EXPECT_TRUE(writePlainBody(c.text, true, stuffing, out));
            EXPECT_EQ(buffer.text(), stuffing ? c.stuffed : c.repaired);
        }
    }
}

TEST_F(RenderTest, HtmlBodies) {
    const struct {
        const char* name;
        std::string html;
        const char* type;
        const char* encoding;
        std::string body;
    } cases[] = {
        {"ascii", "<p>.a\n.b", "text/html; charset=us-ascii", "7bit", "<p>.a\r\n.b"},
        {"latin1", "<p>é", "text/html; charset=iso-8859-1", "quoted-printable", "<p>=E9"},
        {"latin2", "<p>ő", "text/html; charset=iso-8859-2", "quoted-printable", "<p>=F5"},
        {"utf8", "<p>漢", "text/html; charset=utf-8", "quoted-printable", "<p>=E6=BC=A2"},
        {"empty", "", "text/html; charset=us-ascii", "7bit", ""},
    };
    for (const auto& c : cases) {
        ClsEmail email;
        email.SetHtmlBody(text(c.html));
        const std::string message = renderSent(email);
        EXPECT_EQ(fieldOf(message, "Content-Type"), c.type) << c.name;
        EXPECT_EQ(fieldOf(message, "Content-Transfer-Encoding"), c.encoding) << c.name;
        EXPECT_EQ(bodyOf(email), c.body) << c.name;
    }
}

TEST_F(RenderTest, DotsAreStuffedOnRequestInPlainBodiesOnly) {
    const TempFile file("a.txt", ".file");
    email_.SetHtmlBody(text(".html\r\n."));
    email_.AddFileAttachment(text(file.path()), out_);
    const auto copy = email_.createEmailForSending(true, log_);
    const std::string plain = renderTree(*copy);
    const std::string stuffed = renderTree(*copy, {"TVX-", true, false});
    EXPECT_NE(plain.find("\r\n\r\n.html\r\n.\r\n--"), std::string::npos);
    EXPECT_NE(stuffed.find("\r\n\r\n..html\r\n..\r\n--"), std::string::npos);
    EXPECT_EQ(stuffed.size(), plain.size() + 2);
    EXPECT_NE(stuffed.find("\r\n\r\n=2Efile\r\n--"), std::string::npos);
}

TEST_F(RenderTest, EightBitPartsBecomeQuotedPrintableOnRequest) {
    Email2 root(std::make_shared<_tvEmailCommon>(), log_);
    root.setBody("é", "text/plain", log_);
    root.setTransferEncoding("8bit");
    EXPECT_TRUE(renderTree(root).ends_with("Encoding: 8bit\r\nX-Priority: 3 (Normal)\r\n\r\né"));
    const std::string message = renderTree(root, {"", false, true});
    EXPECT_EQ(fieldOf(message, "Content-Transfer-Encoding"), "quoted-printable");
    EXPECT_TRUE(message.ends_with("\r\n\r\n=C3=A9"));
}

TEST_F(RenderTest, AMissingEncodingIsNamed) {
    Email2 root(std::make_shared<_tvEmailCommon>(), log_);
    root.setBody("é", "text/plain", log_);
    root.setTransferEncoding({});
    EXPECT_EQ(fieldOf(renderTree(root), "Content-Transfer-Encoding"), "quoted-printable");
    root.setBody("e", "text/plain", log_);
    root.setTransferEncoding({});
    EXPECT_EQ(fieldOf(renderTree(root), "Content-Transfer-Encoding"), "(none)");
}

TEST_F(RenderTest, TheWholeFrameOfAMultipart) {
    const TempFile logo("logo.png", "png");
    email_.SetHtmlBody(text("<p>"));
    email_.AddRelatedFile(text(logo.path()), out_);
    const auto copy = email_.createEmailForSending(true, log_);
    const std::string& boundary = copy->contentType().boundary;
    const std::string message = renderTree(*copy);
    EXPECT_EQ(fieldOf(message, "Content-Transfer-Encoding"), "(none)");
    EXPECT_EQ(message.substr(message.find("\r\n\r\n") + 4),
              "--" + boundary +
                  "\r\nContent-Type: text/html; charset=us-ascii\r\n"
                  "Content-Transfer-Encoding: 7bit\r\n\r\n<p>\r\n--" +
                  boundary +
                  "\r\nContent-Type: image/png; name=\"logo.png\"\r\n"
                  "Content-Transfer-Encoding: base64\r\n"
                  "Content-ID: <" +
                  std::string(out_.utf8()) + ">\r\n\r\ncG5n\r\n--" + boundary + "--\r\n");
}

TEST_F(RenderTest, ExcludedFieldsStayIn) {
    Email2 root(std::make_shared<_tvEmailCommon>(), log_);
    root.header().set("tvx-Secret", "1");
    root.header().set("X-TVX-Not", "2");
    std::string message = renderTree(root);
    EXPECT_EQ(fieldOf(message, "tvx-Secret"), "(none)");
    EXPECT_EQ(fieldOf(message, "X-TVX-Not"), "2");
    message = renderTree(root, {});
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
    Email2 root(std::make_shared<_tvEmailCommon>(), log_);
    root.header().set("Reply-To", "José <a@b>; c@d");
    root.header().set("Bcc", "undisclosed-recipients:; x@y");
    root.header().set("Sender", "nobody");
    const std::string message = renderTree(root);
    EXPECT_EQ(fieldOf(message, "Reply-To"), "=?utf-8?Q?Jos=C3=A9?= <a@b>, c@d");
    EXPECT_EQ(fieldOf(message, "Bcc"), "undisclosed-recipients:; x@y");
    EXPECT_EQ(fieldOf(message, "Sender"), "nobody");
}

TEST_F(RenderTest, InternalFieldsAreAppliedBeforeSending) {
    Email2 root(std::make_shared<_tvEmailCommon>(), log_);
    _tvLogger log;
    root.from().setAddress("a@b");
    root.header().set("TVX-ReturnReceipt", "YES");
    root.header().set("TVX-Bounce-Address", "<bounce@b>");
    root.header().set("TVX-Bcc", "Anna <x@y>");
    root.header().set("Return-Path", "<r@b>");
    root.header().set("DKIM-Signature", "v=1");
    const auto copy = root.createForSending(true, log);
    const std::string message = renderTree(*copy, {});
    EXPECT_EQ(fieldOf(message, "Disposition-Notification-To"), "<a@b>");
    EXPECT_EQ(fieldOf(message, "Bcc"), "Anna <x@y>");
    EXPECT_EQ(message.find("TVX-"), std::string::npos);
    EXPECT_EQ(fieldOf(message, "Return-Path"), "(none)");
    std::string account;
    log.getText(account);
    EXPECT_NE(account.find("Auto-generating Message-ID"), std::string::npos);
    EXPECT_NE(account.find("DKIM signed email MUST be sent using the SendMimeBytes"),
              std::string::npos);
    EXPECT_NE(renderTree(root, {}).find("TVX-ReturnReceipt: YES"), std::string::npos);
}

TEST_F(RenderTest, ReversePathByItsSources) {
    Email2 root(std::make_shared<_tvEmailCommon>(), log_);
    _tvLogger log;
    log.setVerbose(true);
    const auto expect = [&](const char* path, const char* source) {
        std::string account;
        log.clearLog();
        EXPECT_EQ(root.getSmtpReversePath(log), path);
        log.getText(account);
        EXPECT_NE(account.find(source), std::string::npos) << account;
    };
    expect("", "fromNothing");
    root.header().set("Reply-To", "R <r@b>, s@b");
    expect("r@b", "fromReplyTo");
    root.header().set("From", "F <f@b>");
    expect("f@b", "fromMimeHeader");
    root.from().setAddress("a@b");
    expect("a@b", "fromAddr822");
    root.header().set("return-path", " < p@b > ");
    expect("p@b", "fromReturnPath");
    root.header().set("TVX-Bounce-Address", "<t@b>");
    expect("t@b", "fromTvxBounceAddr");
}

TEST_F(RenderTest, SizeIsWhatIsWritten) {
    const TempFile file("a.bin", std::string(200001, 'x'));
    email_.SetHtmlBody(text("<p>ő\r\n.x"));
    email_.AddFileAttachment(text(file.path()), out_);
    const auto copy = email_.createEmailForSending(true, log_);
    for (const RenderOptions& options : {RenderOptions{}, RenderOptions{"TVX-", true, true}}) {
        uint64_t size = 0;
        EXPECT_TRUE(copy->renderedSize(options, size, log_));
        EXPECT_EQ(size, renderTree(*copy, options).size());
    }
}

TEST_F(RenderTest, ASmallMessageIsOneWriteAndALargeOneComesInBlocks) {
    RecordingStream small;
    email_.SetHtmlBody(text("<p>"));
    EXPECT_TRUE(email_.createEmailForSending(true, log_)->render(small, {}, log_));
    EXPECT_EQ(small.sizes.size(), 1u);

    const TempFile file("a.bin", std::string(3000000, 'x'));
    email_.AddFileAttachment(text(file.path()), out_);
    RecordingStream large;
    EXPECT_TRUE(email_.createEmailForSending(true, log_)->render(large, {}, log_));
    EXPECT_LE(large.sizes.size(), 4000000u / 32768u);
}

// Wherever the stream fails: the render fails, and nothing is written after the failure.
TEST_F(RenderTest, AFailingStreamEndsTheRender) {
    const TempFile file("a.bin", std::string(200000, 'x'));
    email_.SetHtmlBody(text("<p>ő"));
    email_.AddFileAttachment(text(file.path()), out_);
    const auto copy = email_.createEmailForSending(true, log_);
    const size_t whole = renderTree(*copy).size();
    for (size_t limit = 0; limit < whole; limit += 997) {
        FailingStream stream(limit);
        EXPECT_FALSE(copy->render(stream, {"TVX-"}, log_)) << limit;
        EXPECT_EQ(stream.failures, 1) << limit;
    }
    FailingStream enough(whole);
    EXPECT_TRUE(copy->render(enough, {"TVX-"}, log_));
}

TEST(BlockStream, WritesNothingMoreAfterAFailure) {
    FailingStream behind(10);
    BlockStream blocks(behind);
    EXPECT_FALSE(blocks.write(std::string(100000, 'x')));
    EXPECT_FALSE(blocks.write("y"));
    EXPECT_FALSE(blocks.flush());
    EXPECT_EQ(behind.failures, 1);
}

TEST(BlockStream, GivesTheSameBytesInLargerPieces) {
    for (const size_t piece : {1u, 7u, 65535u, 65536u, 65537u, 100000u}) {
        DataBuffer buffer;
        BufferStream behind(buffer);
        BlockStream blocks(behind);
        std::string expected;
        while (expected.size() < 300000) {
            const std::string part(piece, static_cast<char>('a' + expected.size() % 26));
            expected += part;
            EXPECT_TRUE(blocks.write(part));
        }
        EXPECT_TRUE(blocks.flush());
        EXPECT_EQ(buffer.text(), expected) << piece;
    }
}

}  // namespace
}  // namespace tv::test
