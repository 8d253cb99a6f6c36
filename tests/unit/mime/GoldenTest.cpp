// Whole messages, byte for byte, as files in tests/data/golden. After an intended change they are
// written anew by
//     TV_WRITE_GOLDEN=1 build/native/tests/unit_mime --gtest_filter='*Golden*'
#include <cstdlib>
#include <sstream>

#include "mime/TvEmail.h"
#include "tests/fixtures/TestData.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

const std::string kLogo("\x89PNG\r\n\x1A\n\0\0\0\rIHDR", 16);

std::string allBytes() {
    std::string bytes;
    for (int i = 0; i < 1000; ++i) {
        bytes += static_cast<char>(i * 7);
    }
    return bytes;
}

// What the messages are made of; each golden file is one function over it.
struct Host {
    TvEmail email;
    TempFile logo{"logo.png", kLogo};
    TempFile notes{"notes.txt", "first\r\n.second\r\nFrom here = there \r\nlast"};
    TempFile data{"data.bin", allBytes()};
    TempFile invoice{"számla 漢字.pdf", "%PDF"};

    Host() { email.put_Utf8(true); }
    void attach(const TempFile& file) { EXPECT_TRUE(email.AddFileAttachment(file.path().c_str())); }
    std::string addLogo() {
        TvString id;
        EXPECT_TRUE(email.AddRelatedFile(logo.path().c_str(), id));
        return id.bytes();
    }
    void address() {
        email.put_From("sender@example.com");
        email.AddTo("", "anna@example.com");
    }
};

void nothing(Host&) {}

void asciiHtml(Host& host) {
    host.address();
    host.email.put_Subject("Hello");
    host.email.SetHtmlBody(
        "<html><head><meta charset=\"utf-8\"></head>\r\n<body>Hi\n.</body></html>");
}

void latin1Html(Host& host) {
    host.address();
    host.email.put_Subject("Café à la carte");
    host.email.SetHtmlBody("<meta charset=utf-8><p>crème brûlée</p>");
}

void latin2Html(Host& host) {
    host.address();
    host.email.put_Subject("Árvíztűrő tükörfúrógép");
    host.email.SetHtmlBody(
        "<meta http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\">"
        "<p>Árvíztűrő tükörfúrógép, ismét és ismét, egy sornál hosszabb szövegben.</p>\r\n.\r\n");
}

void utf8Html(Host& host) {
    host.address();
    host.email.put_Subject(
        "漢字かな交じり文の長い件名は、いくつもの符号化された語に分けられる。それでも元の文字は"
        "そのまま残る。");
    host.email.SetHtmlBody("<p>漢字 😀</p>");
}

void logoAndHtml(Host& host) {
    host.address();
    host.email.put_Subject("Logo");
    const std::string id = host.addLogo();
    host.email.SetHtmlBody(("<img src=\"cid:" + id + "\">").c_str());
}

void everything(Host& host) {
    host.attach(host.notes);
    host.address();
    host.email.put_Subject("Számla: mellékelve");
    host.email.AddTo("", "Kovács Béla <bela@példa.hu>; \"Doe, John\" <john@example.com>");
    host.email.AddTo("", "a.rather.long.local.part@a.rather.long.domain.example.com");
    host.email.AddCC("", "copy@example.com");
    host.email.AddBcc("", "hidden@example.com");
    const std::string id = host.addLogo();
    host.email.SetHtmlBody(("<p>Tisztelt Ügyfél!<img src=\"cid:" + id + "\">").c_str());
    host.attach(host.data);
    host.attach(host.invoice);
}

void attachmentsAlone(Host& host) {
    host.address();
    host.attach(host.data);
    host.attach(host.notes);
}

struct GoldenCase {
    const char* name;
    void (*make)(Host&);
};

class Golden : public MimeTest, public testing::WithParamInterface<GoldenCase> {};

TEST_P(Golden, IsWhatGoesOut) {
    Host host;
    GetParam().make(host);
    const std::string message = renderSent(host.email.impl());
    const std::string path = testDataPath(std::string("golden/") + GetParam().name + ".eml");
    if (std::getenv("TV_WRITE_GOLDEN")) {
        std::ofstream(path, std::ios::binary) << message;
        GTEST_SKIP() << "written: " << path;
    }
    std::ifstream file(path, std::ios::binary);
    ASSERT_TRUE(file) << path;
    std::ostringstream expected;
    expected << file.rdbuf();
    EXPECT_EQ(message, expected.str());
}

INSTANTIATE_TEST_SUITE_P(
    Messages, Golden,
    testing::Values(GoldenCase{"nothing", nothing}, GoldenCase{"ascii_html", asciiHtml},
                    GoldenCase{"latin1_html", latin1Html}, GoldenCase{"latin2_html", latin2Html},
                    GoldenCase{"utf8_html", utf8Html}, GoldenCase{"logo_and_html", logoAndHtml},
                    GoldenCase{"everything", everything},
                    GoldenCase{"attachments_alone", attachmentsAlone}),
    CaseName{});

}  // namespace
}  // namespace tv::test
