// Lists of mailboxes: what a host's text is taken for, and how a header field has them.
#include "mime/AddressList.h"

#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

// As hosts write them, and as the header has them: what was read wrong is written wrong.
TEST(AddressList, isReadAndWritten) {
    const std::string k28(28, 'a');
    const struct {
        const char* name;
        std::string text;
        std::string field;
        const char* utf8 = nullptr;  // in that form, where it differs
    } rows[] = {
        {"empty pieces, plain name", ";; a@b.c ,; A-B'c <a?b@c>", "a@b.c, A-B'c <a?b@c>"},
        {"specials", "A. <a@b>; [A <c@d>", "\"A.\" <a@b>, \"[A\" <c@d>"},
        {"quoted name", R"("D, J \"B; C\" E\\" <a@b>)", R"("D, J \"B; C\" E\\" <a@b>)"},
        {"backslash that escapes nothing", R"("DOM\anna" <a@b>)", R"("DOM\\anna" <a@b>)"},
        {"quotes of a part of the name", R"(Kis "B; C" <a@b>)", R"("Kis \"B; C\"" <a@b>)"},
        {"two quoted words", R"("A" "B" <a@b>)", R"("\"A\" \"B\"" <a@b>)"},
        {"quote in a word", R"(5" <a@b>; 3" <c@d>)", R"("5\"" <a@b>, "3\"" <c@d>)"},
        {"quoted local part", R"("a;b<x>"@c, A <"a>, <b".x@y>)", R"("a;b<x>"@c, A <"a>, <b".x@y>)"},
        {"quotes behind a dot", R"(a."b;c"@d)", R"(a."b;c"@d)"},
        {"commas in names", "a@x, S, A, <b@y>, T, B <c@z>", "a@x, \"S, A,\" <b@y>, \"T, B\" <c@z>"},
        {"local name in brackets", "< anna >", "anna"},
        {"local name", "anna", "anna"},
        {"local names among others", "anna; b@y, cili; Dora <dora>", "b@y"},
        {"half an address in brackets", "Anna <a,b@x.test>", ""},
        {"unseen ends", "\u200Ba@b.c\u00A0; <d@e\uFEFF>", "a@b.c, d@e"},
        {"unseen within", "a\u00ADb@c.d, e@f\u200Bg.h", ""},
        {"line ends part", "a@x\r\nb@y\nC,\rD <d@z>", "a@x, b@y, D <d@z>"},
        {"line end in quotes", "\"a\r\nb\" <c@d>", R"("b\"" <c@d>)"},
        {"brackets part", "<a@x> B <b@y> c@z; <<d@e>;>;", "a@x, B <b@y>, c@z, d@e"},
        {"comments", R"((x) a@x (S (a, b) \) c) , A (x; y) <e@f(y)>, b(c)@y()",
         "a@x, \"A (x; y)\" <e@f>"},
        {"mailto", "mailto:a@b.c?subject=x@y, A <MAILTO:d@e>", "a@b.c, A <d@e>"},
        {"groups", "x@y; T: a@b;V:D <d@e>;U:;\"V\":c@d;", "x@y, a@b, D <d@e>, c@d"},
        {"numbers", "a@[IPv6:::1], b@[1.2.3.4], c@[], d@[1", "a@[IPv6:::1], b@[1.2.3.4]"},
        {"none", "x y@z; <x y>; <x@y z>; @; @a; a@; \"a b\"; a@b@c; a@ő..hu; a@b:1; a(b)c@d", ""},
        {"quote never closes", "a\"b@c, \"d@e, f@g", "f@g"},
        {"bracket never closes", "Anna <a@b, c@d", "Anna <a@b>, c@d"},
        {"nul within", std::string("a@b\0c", 5), ""},
        {"domain in ASCII", "Jó <a@Ő.hu>; a@B.C", "=?iso-8859-2?Q?J=F3?= <a@xn--8fa.hu>, a@B.C"},
        {"no 7-bit form", "\"K, J\" <ó@b>", "=?utf-8?Q?K=2C_J_=C3=B3=40b?= :;", "\"K, J\" <ó@b>"},
        {"68 columns", k28 + "@b; " + k28 + "123456@b", k28 + "@b, " + k28 + "123456@b"},
        {"69", k28 + "@b; " + k28 + "1234567@b", k28 + "@b,\r\n " + k28 + "1234567@b"},
    };
    for (const auto& [name, text, field, utf8] : rows) {
        SCOPED_TRACE(name);
        const std::vector<_tvEmailAddress> list = parseMailboxes(text);
        EXPECT_EQ(formatAddressList(list, 28592), field);
        EXPECT_EQ(formatAddressList(list, 28592, {.utf8 = true}), utf8 ? utf8 : field);
    }
}

// Where each of them looks for its end through the whole text, this takes hours.
TEST(AddressList, looksForAnEndOnce) {
    EXPECT_EQ(parseMailboxes(std::string(300000, '"') + "<a@b").size(), 1u);
    const std::string brackets = replaceAll(std::string(100000, '('), "(", "(<[");
    EXPECT_EQ(parseMailboxes(brackets + ",a@b;c@d").size(), 1u);
}

}  // namespace
}  // namespace tv::test
