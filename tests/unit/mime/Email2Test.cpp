// The tree of a message: which part stands where after which calls, its fields, its bytes.
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

// A tree as one line of text.
std::string outline(const Email2& node) {
    if (node.isAttachment()) return "file";
    if (node.isRelatedItem()) return "item";
    if (node.isPlaceholder()) return "nothing";
    const std::string& type = node.contentType().mediaType();
    std::string out;
    for (const auto& child : node.children()) {
        out += (out.empty() ? "" : " ") + outline(*child);
    }
    return type.substr(type.find('/') + 1) + (node.isMultipart() ? '(' + out + ')' : out);
}

class Email2Test : public MimeTest {
protected:
    // h: HTML body, p: plain body, m: one that is a multipart, l: logo, a: attachment; H, P, L, A:
    // their removal.
    static std::string treeAfter(std::string_view steps) {
        LogNull log;
        Email2 root(log, std::make_shared<_tvEmailCommon>());
        for (const char step : steps) {
            if (step == 'h') root.moveMixedPlainTextToAlternative(log);
            if (step == 'h') root.setBody(log, "html", "text/html");
            if (step == 'p') root.setBody(log, "plain", "text/plain");
            if (step == 'm') root.setBody(log, "x", "multipart/mixed");
            if (step == 'H') root.removeBody("text/html");
            if (step == 'P') root.removeBody("text/plain");
            if (step == 'L') root.dropRelatedItems();
            if (step == 'A') root.dropAttachments();
            if (step != 'l' && step != 'a') continue;
            // A text file, so that a body that went into it would show.
            std::unique_ptr<Email2> part = root.createSubPart();
            part->setFileContent("text/html", 65001, "x.html", std::make_shared<DataBuffer>());
            if (step == 'a') part->setDisposition("attachment", "x.html");
            if (step == 'l') part->setContentId("<id@x>");
            step == 'a' ? root.addAttachment(log, std::move(part))
                        : root.addRelatedItem(log, std::move(part));
        }
        EXPECT_EQ(rendered(root), rendered(root));
        return outline(root);
    }

    std::string encodingOf(std::string_view body, std::string_view encoding, bool seven = false) {
        root_.setBody(log_, body, "text/plain");
        root_.setTransferEncoding(encoding);
        return fieldOf(rendered(root_, {"", false, seven}), "Content-Transfer-Encoding");
    }

    Email2 root_{log_, std::make_shared<_tvEmailCommon>()};
};

TEST_F(Email2Test, treeIsTheSameInEveryOrderOfHtmlLogoAndFile) {
    for (unsigned number = 0; number < 6 * 6 * 6 * 6 * 6; ++number) {
        std::string steps, items, files, body = "nothing";
        for (unsigned rest = number; rest != 0; rest /= 6) {
            const char step = "-hlaLA"[rest % 6];  // the first is none
            steps += step;
            if (step == 'h') body = "html";
            if (step == 'l') items += " item";
            if (step == 'a') files += " file";
            if (step == 'L') items.clear();
            if (step == 'A') files.clear();
        }
        if (!items.empty()) body = "related(" + body + items + ')';
        if (!files.empty()) body = "mixed(" + body + files + ')';
        ASSERT_EQ(treeAfter(steps), body) << steps;
    }
}

TEST_F(Email2Test, treeFollowsTheOrderOfCalls) {
    const char* const rows[][2] = {
        // a text body beside the HTML
        {"m", "plain"},
        {"app", "mixed(plain file)"},
        {"pahh", "mixed(alternative(plain html) file)"},
        {"pahll", "mixed(alternative(plain related(html item item)) file)"},
        {"pahlh", "mixed(alternative(plain related(html item)) file)"},
        // and away again
        {"hlH", "related(item)"},
        {"hlHh", "related(html item)"},
        {"pahlPHAL", "nothing"},
        {"pahHA", "plain"},
        {"aP", "mixed(file)"},
        {"aPl", "mixed(related(item) file)"},
        {"hlaHALhla", "mixed(related(html item) file)"},
    };
    for (const auto& [steps, tree] : rows) {
        EXPECT_EQ(treeAfter(steps), tree) << steps;
    }
}

TEST_F(Email2Test, plainBodyHasItsLineEndsRepairedAndItsDotsStuffed) {
    const char* const rows[][3] = {
        // text, repaired, with dots stuffed as well
        {"a\nb\rc\r\n", "a\r\nb\r\nc\r\n", "a\r\nb\r\nc\r\n"},
        {"a\n\rb\r\r\n", "a\r\n\r\nb\r\n\r\n", "a\r\n\r\nb\r\n\r\n"},
        {".a\r\n.\r\n..\n.b.", ".a\r\n.\r\n..\r\n.b.", "..a\r\n..\r\n...\r\n..b."},
        {"\r.", "\r\n.", "\r\n.."},
    };
    for (const auto& [text, repaired, stuffed] : rows) {
        root_.setBody(log_, text, "text/plain");
        EXPECT_TRUE(rendered(root_).ends_with(std::string("(Normal)\r\n\r\n") + repaired));
        EXPECT_TRUE(rendered(root_, {"", true}).ends_with(std::string("\r\n\r\n") + stuffed));
    }
}

TEST_F(Email2Test, encodingIsOneThatMailCanCarry) {
    EXPECT_EQ(encodingOf("é", "8bit"), "8bit");
    EXPECT_EQ(encodingOf("é", "8bit", true), "quoted-printable");
    EXPECT_EQ(encodingOf("é", ""), "quoted-printable");
    EXPECT_EQ(encodingOf("e", ""), "(none)");
    for (const char* encoding : {"", "7bit", "8bit", "binary"}) {
        EXPECT_EQ(encodingOf(std::string(999, 'x'), encoding), "quoted-printable");
        EXPECT_EQ(rendered(root_).find(std::string(999, 'x')), std::string::npos);
    }
}

TEST_F(Email2Test, fieldsKeepTheOrderOfTheirFirstSetting) {
    MimeHeader& header = root_.header();
    const char* const fields[][2] = {{"A", "1"},  {"B", " 2\r\n "}, {"a", "3"}, {"TVX-B", "5"},
                                     {"D", "6"},  {"d", " "},       {"", "7"},  {"x y", "7"},
                                     {"x:", "7"}, {"\x7F", "7"},    {"é", "7"}};
    for (const auto& [name, value] : fields) {
        header.set(name, value);
    }
    header.setBehind("a", "C", "4");
    EXPECT_TRUE(rendered(root_).ends_with("(Normal)\r\nA: 3\r\nC: 4\r\nB: 2\r\n\r\n"));
    EXPECT_EQ(fieldOf(rendered(root_, {}), "TVX-B"), "5");
}

// What is set, what stands in a 7-bit header, and what in one of UTF-8 where that differs.
TEST_F(Email2Test, fieldsAreWrittenInTheFormThatTheServerTakes) {
    const char* const rows[][4] = {
        {"Reply-To", "José <a@b>; c@d", "=?utf-8?Q?Jos=C3=A9?= <a@b>, c@d"},
        {"Resent-To", "A <é@b>", "=?utf-8?Q?A_=C3=A9=40b?= :;", "A <é@b>"},
        {"Sender", "é@ő..b", "=?utf-8?Q?=C3=A9@=C5=91..b?="},
        {"Resent-From", "nobody", "nobody"},
        {"Resent-Cc", "undisclosed-recipients:; x@y", "undisclosed-recipients:; x@y"},
        {"From", nullptr, "=?utf-8?Q?=C5=91=40b?= :;", "ő@b"},
        {"To", nullptr, "=?utf-8?Q?=C3=A9=40b?= :;", "é@b"},
        {"TVX-ReturnReceipt", "YES", "(none)"},
        {"Disposition-Notification-To", nullptr, "=?utf-8?Q?=C5=91=40b?= :;", "<ő@b>"},
        {"TVX-Bcc", "Anna <x@y>", "(none)"},
        {"Bcc", nullptr, "Anna <x@y>"},
        {"TVX-Bounce-Address", "<bounce@b>", "(none)"},
        {"Return-Path", "<x@y>", "(none)"},
    };
    root_.from().setAddress("ő@b");
    root_.rebuildFromField();
    root_.recipients(Email2::Recipients::To).emplace_back("", "é@b");
    root_.rebuildRecipientField(Email2::Recipients::To);
    for (const auto& [name, value, seven, utf8] : rows) {
        if (value) root_.header().set(name, value);
    }
    EXPECT_EQ(root_.getSmtpReversePath(log_), "bounce@b");
    const auto copy = root_.createForSending(log_, true);
    for (const auto& [name, value, seven, utf8] : rows) {
        EXPECT_EQ(fieldOf(rendered(*copy, {}), name), seven);
        EXPECT_EQ(fieldOf(rendered(*copy, {"", false, false, true}), name), utf8 ? utf8 : seven);
    }
}

// Wherever the stream fails: the render fails, and nothing is written after the failure.
TEST_F(Email2Test, renderingEndsWhereItsStreamFails) {
    file("a.bin", std::string(100000, 'x'));
    TvEmail email;
    step(email, "html <p>ő");
    step(email, "attach a.bin");
    const auto copy = email.impl().createEmailForSending(log_, true);
    StringStream whole;
    EXPECT_TRUE(copy->render(log_, whole, {}));
    for (size_t writes = 0; writes < whole.calls; ++writes) {
        StringStream stream(writes);
        EXPECT_FALSE(copy->render(log_, stream, {})) << writes;
        EXPECT_EQ(stream.calls, writes + 1);
    }
}

}  // namespace
}  // namespace tv::test
