// Whole messages, byte for byte, as files in tests/data/golden. After an intended change they are
// written anew by
//     TV_WRITE_GOLDEN=1 build/native/tests/unit_mime --gtest_filter='*Golden*'
#include <cstdlib>

#include "tests/fixtures/TestData.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

struct GoldenCase {
    const char* name;
    std::vector<std::string> steps;  // of MimeTest
};

const std::string kFrom = "from sender@example.com";
const std::string kTo = "to anna@example.com";
const std::string kLogoElement =
    "<img src=\"cid:CID-04050607-0001-4203-8405-060700010203@TESTHOST\">";

const GoldenCase kGolden[] = {
    {"nothing", {}},
    {"ascii_html",
     {kFrom, kTo, "subject Hello",
      "html <html><head><meta charset=\"utf-8\"></head>\r\n<body>Hi\n.</body></html>"}},
    {"latin1_html",
     {kFrom, kTo, "subject Café à la carte", "html <meta charset=utf-8><p>crème brûlée</p>"}},
    {"latin2_html",
     {kFrom, kTo, "subject Árvíztűrő tükörfúrógép",
      "html <meta http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\">"
      "<p>Árvíztűrő tükörfúrógép, ismét és ismét, egy sornál hosszabb szövegben.</p>\r\n.\r\n"}},
    {"utf8_html",
     {kFrom, kTo,
      "subject "
      "漢字かな交じり文の長い件名は、いくつもの符号化された語に分けられる。それでも元の文字は"
      "そのまま残る。",
      "html <p>漢字 😀</p>"}},
    {"logo_and_html", {kFrom, kTo, "subject Logo", "logo logo.png", "html " + kLogoElement}},
    {"everything",
     {"attach notes.txt", kFrom, kTo, "subject Számla: mellékelve",
      "to Kovács Béla <bela@példa.hu>; \"Doe, John\" <john@example.com>",
      "to a.rather.long.local.part@a.rather.long.domain.example.com", "cc copy@example.com",
      "bcc hidden@example.com", "logo logo.png", "html <p>Tisztelt Ügyfél!" + kLogoElement,
      "attach data.bin", "attach számla 漢字.pdf"}},
    {"attachments_alone", {kFrom, kTo, "attach data.bin", "attach notes.txt"}},
};

class Golden : public MimeTest, public testing::WithParamInterface<GoldenCase> {};

TEST_P(Golden, isWhatGoesOut) {
    std::string bytes;
    for (int i = 0; i < 1000; ++i) {
        bytes += static_cast<char>(i * 7);
    }
    file("logo.png", {"\x89PNG\r\n\x1A\n\0\0\0\rIHDR", 16});
    file("notes.txt", "first\r\n.second\r\nFrom here = there \r\nlast");
    file("data.bin", bytes);
    file("számla 漢字.pdf", "%PDF");
    ClsEmail email;
    for (const std::string& each : GetParam().steps) {
        EXPECT_TRUE(step(email, each)) << each;
    }
    const std::string path = testDataPath(std::string("golden/") + GetParam().name + ".eml");
    if (std::getenv("TV_WRITE_GOLDEN")) {
        std::ofstream(path, std::ios::binary) << sent(email);
        GTEST_SKIP() << "written: " << path;
    }
    EXPECT_EQ(sent(email), fileText(path)) << path;
}

INSTANTIATE_TEST_SUITE_P(Messages, Golden, testing::ValuesIn(kGolden),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace tv::test
