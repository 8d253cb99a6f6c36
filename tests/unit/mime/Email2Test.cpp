// The tree of a message: which part stands where after which calls; its fields.
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

// h: HTML body, p: plain body, m: one that is a multipart, l: logo, a: attachment; H, P, L, A:
// their removal; t: a text made from the HTML.
std::string treeAfter(std::string_view steps) {
    LogNull log;
    Email2 root(log, std::make_shared<_tvEmailCommon>());
    for (const char step : steps) {
        if (step == 'h') root.moveMixedPlainTextToAlternative(log);
        if (step == 'h') root.setBody(log, "html", "text/html");
        if (step == 'p') root.setBody(log, "plain", "text/plain");
        if (step == 'm') root.setBody(log, "x", "multipart/mixed");
        if (step == 't') root.addTextAlternative(log);
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

TEST(Email2, treeIsTheSameInEveryOrderOfHtmlLogoAndFile) {
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

TEST(Email2, treeFollowsTheOrderOfCalls) {
    const char* const rows[][2] = {
        // a text body beside the HTML
        {"m", "plain"},
        {"app", "mixed(plain file)"},
        {"pahll", "mixed(alternative(plain related(html item item)) file)"},
        {"pahlh", "mixed(alternative(plain related(html item)) file)"},
        // a text made from the HTML, with the logo beside that
        {"ht", "alternative(plain html)"},
        {"hlt", "alternative(plain related(html item))"},
        {"hat", "mixed(alternative(plain html) file)"},
        {"lahat", "mixed(alternative(plain related(html item)) file file)"},
        {"pahPtt", "mixed(alternative(plain html) file)"},
        {"lt", "related(nothing item)"},
        // and away again
        {"hlHh", "related(html item)"},
        {"pahlPHAL", "nothing"},
        {"pahHA", "plain"},
        {"aPl", "mixed(related(item) file)"},
        {"hlaHALhla", "mixed(related(html item) file)"},
    };
    for (const auto& [steps, tree] : rows) {
        EXPECT_EQ(treeAfter(steps), tree) << steps;
    }
}

// What is set, what stands in a 7-bit header, and what in one of UTF-8 where that differs.
TEST(Email2, fieldsAreWrittenInTheFormThatTheServerTakes) {
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
        {"tvx-bcc", "Anna <x@y>", "(none)"},
        {"Bcc", nullptr, "Anna <x@y>"},
        {"TVX-Bounce-Address", "<bounce@b>", "(none)"},
        {"TVX-B", "5", "5"},
        {"Return-Path", "<x@y>", "(none)"},
    };
    LogNull log;
    Email2 root(log, std::make_shared<_tvEmailCommon>());
    root.from().setAddress("ő@b");
    root.rebuildFromField();
    root.recipients(Email2::Recipients::To).emplace_back("", "é@b");
    root.rebuildRecipientField(Email2::Recipients::To);
    for (const auto& [name, value, seven, utf8] : rows) {
        if (value) root.header().set(name, value);
    }
    EXPECT_EQ(root.getSmtpReversePath(log), "bounce@b");
    const auto copy = root.createForSending(log, true);
    for (const auto& [name, value, seven, utf8] : rows) {
        EXPECT_EQ(fieldOf(rendered(*copy, {}), name), seven);
        EXPECT_EQ(fieldOf(rendered(*copy, {"", true}), name), utf8 ? utf8 : seven);
    }
    EXPECT_EQ(fieldOf(rendered(*copy), "TVX-B"), "(none)");
}

}  // namespace
}  // namespace tv::test
