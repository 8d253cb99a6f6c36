// Plain text from HTML: small documents, whole mails beside what is wanted of them, and documents
// that nobody writes in good faith.
#include <cstdlib>
#include <fstream>

#include "mime/HtmlToText.h"
#include "tests/fixtures/TestBytes.h"
#include "tests/fixtures/TestData.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

std::string repeated(std::string_view text, size_t times) {
    std::string out;
    for (; times > 0; --times) {
        out += text;
    }
    return out;
}

TEST(HtmlToText, saysWhatTheDocumentSays) {
    const struct {
        std::string_view html, text;  // without the last line end
    } rows[] = {
        // white space
        {"", ""},
        {" \r\n<p> </p><br><div>&nbsp;</div>", ""},
        {"<p>  one\r\n\ttwo   <b> three</b> ", "one two three"},
        {"10&nbsp;000\u00A0Ft&#8239;x", "10 000 Ft x"},
        {"a<br>b<br/>c</br>d", "a\nb\nc\nd"},
        {"a<br><br><br><br>b", "a\n\nb"},
        {"<div>a<br></div><div><br></div><div>b</div>c", "a\n\nb\nc"},
        {"<p>a<p>b</p>c<div>d</div>", "a\n\nb\n\nc\nd"},
        {"<b>a<div>b</b>c</div>d", "a\nbc\nd"},
        {"<p>a\x01\x7F\fb&#7;", "a b"},
        {"<p>so&shy;\u00ADft&#8203;\uFEFF", "soft"},
        {"<p>&#847;&zwnj;&nbsp;&#8199;&zwnj; a\u200Db", "a\u200Db"},
        {"  a & b\r\n\r\n\r\n&lt;c\t< 3 ", "  a & b\n\n\n<c\t< 3"},
        // references
        {"&aacute;&odblac;&Udblac;&#337;&#x171;&#X20ac&euro;", "áőŰőű€€"},
        {"&#128;&#150;&#x9f; &#129; &#0; &#xD800; &#1114112; &#99999999999999999999;",
         "€–Ÿ &#129; &#0; &#xD800; &#1114112; &#99999999999999999999;"},
        {"AT&T &amp &lt;b&gt &nosuch; &; & &copy2 &copy; &odblac &# &#x",
         "AT&T & <b> &nosuch; &; & &copy2 © &odblac &# &#x"},
        {"a &", "a &"},
        // markup that is none
        {"1 < 2 <3 a<b", "1 < 2 <3 a"},
        {"a<!-- b > c -->d<!-->e<!--->f<!doctype x>g<?xml h?>i</>j</ k>l", "adefgijl"},
        {"a<!-- b", "a"},
        {"a<p title=\"b", "a"},
        {"<!--[if mso]><p>a</p><![endif]-->b<![if !mso]>c<![endif]><!--[if "
         "!mso]><!-->d<!--<![endif]-->",
         "bcd"},
        {"<o:p>a</o:p><no-such-element-here>b</b></i></td></table></ul>", "ab"},
        // what is hidden
        {"<head><title>a</title><style>b</style></head><script>'</scriptx>'</script >c", "c"},
        {"a<style>b", "a"},
        {"a<div hidden>b<div>c</div></div><template>d</template>e<xml><p>f</xml>g", "aeg"},
        {"<span style='Display : NONE !important'>a<span>b</span>c</span>d", "d"},
        {"<p style=visibility:hidden>a<p>b<i style='mso-hide:all'>c</i><p>d", "b\n\nd"},
        {"<div class=preheader>a</div><div style=\"max-height:0px\">b</div><a hidden href=x>c</a>d",
         "d"},
        {"<td>a<table style=font-size:0><td>b<td><div style='font-size:0.5em'>c</div>"
         "<div style=font-size:13px>d<img alt=e></div><img alt=f>",
         "a\n\nd e\nf"},
        {"<table><tr style=display:none><td>a<tr><td style=display:none>b<td>c</table>", "c"},
        // headings, rules, quotes
        {"a<h1>Ő b</h1><h2>cd</h2>e<h3>f</h3>g", "a\n\nŐ b\n===\n\ncd\n--\n\ne\n\nf\n\ng"},
        {"<h1>a<br>b</h1><h2></h2>c", "a\nb\n\nc"},
        {"a<hr>b", "a\n\n----------------------------------------\n\nb"},
        {"a<blockquote><p>b<blockquote>c</blockquote><h1>d</h1></blockquote>e",
         "a\n\n> b\n>\n> > c\n>\n> d\n> =\n\ne"},
        // lists
        {"a<ul><li>b<li>c<ol start=9><li>d<li>e<br>f</ol></ul>g",
         "a\n\n- b\n- c\n  9. d\n  10. e\n      f\n\ng"},
        {"<ul><li><ul><li>a</ul><li></li><li><blockquote>b<p>c</ul>", "  - a\n\n- > b\n  >\n  > c"},
        {"<ol start=x><li>a</ol><ol start=9999999999><li>b</ol><li>c</li>d",
         "1. a\n\n1. b\n\n- c\nd"},
        {"<dl><dt>a<dd>b<dt>c</dl>d", "a\nb\nc\n\nd"},
        // links and images
        {"<a href=' http://x.hu/?a=1&amp;b=2&copy=3\n'>here</a>.",
         "here <http://x.hu/?a=1&b=2&copy=3>."},
        {"<a href=https://X.hu/>x.hu</a> <a href=mailto:a@b>a@b</a> <a href=x>x</a>", "x.hu a@b x"},
        {"<a href='mailto:a@b?subject=c'>d </a>e", "d <mailto:a@b> e"},
        {"<a>a</a> <a href=''>b</a> <a href=#c>d</a> <a href=JavaScript:e>f</a> <a "
         "href=tel:1>g</a>",
         "a b d f g"},
        {"<a href=x></a>a<a href=y><img></a><a href=z> <img alt='b &amp; c'></a>",
         "a <y> b & c <z>"},
        {"<a href=x><h1>a</h1></a>b", "a <x>\n=\n\nb"},
        {"<a href=x>a<a href=y>b</a>c</a>", "a <x>b <y>c"},
        {"<p><a href=x>a<p>b", "a <x>\n\nb"},
        {"<a href=x><table><td>a<td>b</table></a>c", "a | b <x>\n\nc"},
        {"a<img alt='b\nc'><img alt><img src=d>e", "a b c e"},
        // tables
        {"a<table><tr><th>b</th><th>c</th></tr><tr><td>d<td><td> e f </table>g",
         "a\n\nb | c\nd | e f\n\ng"},
        {"<table><tr><td><p>a</p><td><p>b</p><tr><td><p>c<td>d</table>", "a | b\nc | d"},
        {"<table><td>a<br>b<td>c<td>d</table>", "a\nb | c | d"},
        {"<table><td>a<br>b<td>c<br>d</table>", "a\nb\n\nc\nd"},
        {"<table><td>a<td><p>b<p>c</table>", "a\nb\n\nc"},
        {"<table><td>a<td><table><td>b<td>c</table>d<td>e</table>", "a\n\nb | c\n\nd\ne"},
        {"<table><td>a<td><ul><li>b</ul></table>", "a\n\n- b"},
        {"<table><tr>a<td>b</td>c<td>d<tfoot><tr><td>e<td>f</table>", "a\nb\nc\nd\ne | f"},
        {"<blockquote><table><td>a<td>b<tr><td>c</table></blockquote>", "> a | b\n> c"},
        {"<tr><td>a<td>b", "a\nb"},
        // text that stays as it is
        {"a<pre>\n  b\t c \n\n\n d</pre>e", "a\n\n  b\t c\n\n\n d\n\ne"},
        {"<blockquote><pre>a\r\n\r\n&nbsp;b</pre></blockquote>", "> a\n>\n>  b"},
        {"<div style='white-space: pre-wrap'>a\n b</div>", "a\n b"},
    };
    for (const auto& [html, text] : rows) {
        EXPECT_EQ(htmlToText(html), text.empty() ? "" : std::string(text) + '\n') << html;
    }
}

// tests/data/golden/html/<name>.html and .txt. After an intended change:
//     TV_WRITE_GOLDEN=1 build/native/tests/unit_mime --gtest_filter='HtmlToText*'
TEST(HtmlToText, makesReadableTextOfMails) {
    for (const std::string name : {"ticket", "invoice", "newsletter", "outlook", "layout", "magyar",
                                   "lists", "reply", "links", "plain"}) {
        const std::string path = testDataPath("golden/html/" + name);
        const std::string html = fileText(path + ".html");
        ASSERT_FALSE(html.empty()) << path;
        if (std::getenv("TV_WRITE_GOLDEN")) {
            std::ofstream(path + ".txt", std::ios::binary) << htmlToText(html);
        }
        EXPECT_EQ(htmlToText(html), fileText(path + ".txt")) << path;
    }
}

// Each part alone and all together, nested or side by side: what takes more than linear time or
// memory would not come to an end here.
TEST(HtmlToText, isLinearAndBounded) {
    const std::string parts[] = {
        "<blockquote>a",
        "<ul><li>a",
        "<ol start=999999999><li>a",
        "<table><tr><td>a<td>",
        "<td>a",
        "<b>",
        "<div></b>",
        "</b></td></p>",
        "<!--",
        "<!",
        "<a href='x",
        "<a href=xxxxxxxxxxxxxxxx>a",
        "<p hidden>",
        "&#11111111",
        "&amp",
        "<h1>aaaa</h1>",
        "<hr>",
        "<style></",
        "<pre>\n a\n",
        "<tr><td>a<td>b",
        "<i><p>",
        "</i>",
        "<img alt=a>",
        "<i style=font-size:0>",
    };
    constexpr size_t kSize = size_t{4} * 1024 * 1024, kAllowance = size_t{64} * 1024;
    for (const std::string& part : parts) {
        const std::string html =
            repeated("<blockquote>", 1000) + repeated(part, kSize / part.size());
        // Of the links, the targets once more.
        EXPECT_LE(htmlToText(html).size(), html.size() * 2 + kAllowance) << part;
        if (part.find("href") == part.npos) {
            EXPECT_LE(htmlToText(html).size(), html.size() + kAllowance) << part;
        }
    }
    const std::string alphabet = repeated("<>/\"'=&; -!", 2) + "abpi\n\xC3\xA9";
    for (uint32_t seed = 1; seed <= 10000; ++seed) {
        std::string html;
        for (uint32_t i = 0, at = seed; i < seed / 20; ++i, at = at * 1664525 + 1013904223) {
            html += parts[(at >> 16) % std::size(parts)];
        }
        html += randomText(100, alphabet.c_str(), seed);
        const std::string text = htmlToText(html);
        EXPECT_LE(text.size(), 2 * html.size() + kAllowance);
        EXPECT_TRUE(text.empty() || text.ends_with('\n'));
    }
}

}  // namespace
}  // namespace tv::test
