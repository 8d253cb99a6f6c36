// Which part stands where: the tree that each order of calls leads to, as one line of text.
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

std::string outline(const Email2& node) {
    const std::string& type = node.contentType().mediaType();
    std::string out = type.substr(type.find('/') + 1);
    if (node.isAttachment()) out = "file";
    if (node.isRelatedItem()) out = "item";
    if (node.isPlaceholder()) out = "nothing";
    if (!node.isMultipart()) return out;
    out += '(';
    for (const auto& child : node.children()) {
        if (out.back() != '(') out += ' ';
        out += outline(*child);
    }
    return out + ')';
}

class TreeTest : public MimeTest {
protected:
    // h: HTML body, p: plain body, l: logo, a: attachment; H, P, L, A: their removal.
    std::string after(std::string_view steps) {
        Email2 root(log_, std::make_shared<_tvEmailCommon>());
        for (const char step : steps) {
            if (step == 'h') root.moveMixedPlainTextToAlternative(log_);
            if (step == 'h') root.setBody(log_, "html", "text/html");
            if (step == 'p') root.setBody(log_, "plain", "text/plain");
            if (step == 'l') root.addRelatedItem(log_, file(root, false));
            if (step == 'a') root.addAttachment(log_, file(root, true));
            if (step == 'H') root.removeBody("text/html");
            if (step == 'P') root.removeBody("text/plain");
            if (step == 'L') root.dropRelatedItems();
            if (step == 'A') root.dropAttachments();
        }
        EXPECT_EQ(renderTree(root), renderTree(root));
        return outline(root);
    }

    // A text file, so that a body that went into it would show.
    static std::unique_ptr<Email2> file(const Email2& root, bool attached) {
        auto bytes = std::make_shared<DataBuffer>();
        EXPECT_TRUE(bytes->append("file"));
        std::unique_ptr<Email2> part = root.createSubPart();
        part->setFileContent("text/html", 65001, "x.html", bytes);
        if (attached) {
            part->setDisposition("attachment", "x.html");
        } else {
            part->setContentId("<id@x>");
        }
        return part;
    }

    LogNull log_;
};

TEST_F(TreeTest, EveryOrderOfCalls) {
    const struct {
        const char* steps;
        const char* tree;
    } cases[] = {
        {"", "nothing"},
        {"h", "html"},
        {"hh", "html"},
        {"l", "related(nothing item)"},
        {"a", "mixed(nothing file)"},
        {"hl", "related(html item)"},
        {"lh", "related(html item)"},
        {"ha", "mixed(html file)"},
        {"ah", "mixed(html file)"},
        {"aah", "mixed(html file file)"},
        {"hla", "mixed(related(html item) file)"},
        {"hal", "mixed(related(html item) file)"},
        {"lha", "mixed(related(html item) file)"},
        {"lah", "mixed(related(html item) file)"},
        {"ahl", "mixed(related(html item) file)"},
        {"alh", "mixed(related(html item) file)"},
        {"hlhlh", "related(html item item)"},
        {"alhlah", "mixed(related(html item item) file file)"},
        // a text body beside the HTML
        {"p", "plain"},
        {"pa", "mixed(plain file)"},
        {"pah", "mixed(alternative(plain html) file)"},
        {"pahl", "mixed(alternative(plain related(html item)) file)"},
        {"pahll", "mixed(alternative(plain related(html item item)) file)"},
        {"pahh", "mixed(alternative(plain html) file)"},
        {"pahp", "mixed(alternative(plain html) file)"},
        {"pahlh", "mixed(alternative(plain related(html item)) file)"},
        {"ap", "mixed(plain file)"},
        {"app", "mixed(plain file)"},
        {"ph", "html"},
        // and away again
        {"H", "nothing"},
        {"hH", "nothing"},
        {"hlH", "related(item)"},
        {"hlHh", "related(html item)"},
        {"hlL", "html"},
        {"haA", "html"},
        {"hlaL", "mixed(html file)"},
        {"hlaA", "related(html item)"},
        {"hlaLA", "html"},
        {"hlaAL", "html"},
        {"hlaHAL", "nothing"},
        {"hlaHLA", "nothing"},
        {"laPHAL", "nothing"},
        {"pahlPHAL", "nothing"},
        {"pahP", "mixed(html file)"},
        {"pahH", "mixed(plain file)"},
        {"pahHA", "plain"},
        {"aP", "mixed(file)"},
        {"aPh", "mixed(html file)"},
        {"aPl", "mixed(related(item) file)"},
        {"hlaHALhla", "mixed(related(html item) file)"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(after(c.steps), c.tree) << c.steps;
    }
}

TEST_F(TreeTest, NoBodyCanBeAMultipart) {
    Email2 root(log_, std::make_shared<_tvEmailCommon>());
    EXPECT_TRUE(root.setBody(log_, "x", "multipart/mixed"));
    EXPECT_EQ(outline(root), "plain");
}

TEST_F(TreeTest, EveryMultipartDrawsItsOwnBoundary) {
    Email2 root(log_, std::make_shared<_tvEmailCommon>());
    root.setBody(log_, "html", "text/html");
    root.addRelatedItem(log_, file(root, false));
    root.addAttachment(log_, file(root, true));
    const std::string outer = root.contentType().boundary;
    const std::string inner = root.children().front()->contentType().boundary;
    EXPECT_NE(outer, inner);
    for (const std::string& boundary : {outer, inner}) {
        ASSERT_EQ(boundary.size(), 36u);
        EXPECT_EQ(boundary.substr(0, 12), "------------");
        for (size_t i = 12; i < boundary.size(); i += 2) {
            EXPECT_EQ(boundary[i], '0');
            EXPECT_TRUE(isAsciiDigit(boundary[i + 1]));
        }
    }
}

}  // namespace
}  // namespace tv::test
