#include "mime/AddressList.h"

#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

TEST(ParseMailboxes, SplitsAndTakesApart) {
    const struct {
        const char* name;
        std::string text;
        std::string mailboxes;  // "name|address", one after the other
    } rows[] = {
        {"bare", "a@b.c", "|a@b.c"},
        {"no at sign", "root", "|root"},
        {"quoted name", "\"Doe, John\" <j@d.e>", "Doe, John|j@d.e"},
        {"escapes go with the quotes", R"("A \"B\" C\\" <a@b.c>)", R"(A "B" C\|a@b.c)"},
        {"backslash that escapes nothing", R"("DOM\anna" <a@b.c>)", R"(DOM\anna|a@b.c)"},
        {"escaped quote closes nothing", R"("A \"; B" <a@b>)", R"(A "; B|a@b)"},
        {"quotes of a part of the name", R"(Kis "B; C" <a@b>)", R"(Kis "B; C"|a@b)"},
        {"two quoted words", R"("A" "B" <a@b>)", R"("A" "B"|a@b)"},
        {"quote in a word", "5\" <a@b>; 3\" <c@d>", "5\"|a@b & 3\"|c@d"},
        {"mixed", "Anna <a@x>; \"B; C\" <b@y>, c@z", "Anna|a@x & B; C|b@y & |c@z"},
        {"separator in a comment", "A (x; y) <a@b>", "A (x; y)|a@b"},
        {"quoted local part", "\"a;b\"@c.d", "|\"a;b\"@c.d"},
        {"brackets in a quoted local part", "\"a<x>b\"@b.c", "|\"a<x>b\"@b.c"},
        {"that in brackets", "A <\"a>, <b\".x@b.c>", "A|\"a>, <b\".x@b.c"},
        {"comma in a name", "Smith, Anna <anna@x.test>", "Smith, Anna|anna@x.test"},
        {"commas in a name behind others", "a@x, S, A, <b@y>, c@z", "|a@x & S, A,|b@y & |c@z"},
        {"local name in brackets", "<anna>", "|anna"},
        {"local name with anything else", "Smith, Anna <anna>", ""},
        {"local name and comment", "Anna (a@b.c)", ""},
        {"local name behind a colon", "Re: boss", ""},
        {"half an address in brackets", "Anna <a,b@x.test>", ""},
        {"unseen ends",
         "\u200B"
         "a@b.c\u00A0; <d@e\uFEFF>",
         "|a@b.c & |d@e"},
        {"unseen within",
         "a\u00AD"
         "b@c.d, e@f\u200B"
         "g.h",
         ""},
        {"mailto with a query", "mailto:a@b.c?subject=x@y", "|a@b.c"},
        {"local names among others", "anna; b@y, cili; Dora <dora>", "|b@y"},
        {"comma before an address", "anna, b@y", "|b@y"},
        {"line ends part", "a@x\r\nb@y\nC,\rD <d@z>", "|a@x & |b@y & D|d@z"},
        {"line end in quotes", "\"a\r\nb\" <c@d>", "b\"|c@d"},
        {"brackets part", "<a@x> B <b@y> c@z", "|a@x & B|b@y & |c@z"},
        {"comments", "(x) me@x.test (Service (a, b) \\) c) , b@y(", "|me@x.test"},
        {"comment inside", "a(b)c@d, m(x) <e@f(y)>", "m(x)|e@f"},
        {"mailto", "mailto:a@b.c, A <MAILTO:d@e>", "|a@b.c & A|d@e"},
        {"group", "Team: a@b.c, D <d@e.f>;", "|a@b.c & D|d@e.f"},
        {"groups", "x@y; T: a@b;U:;\"V\":c@d;", "|x@y & |a@b & |c@d"},
        {"address in numbers", "a@[IPv6:::1], b@[1.2.3.4]", "|a@[IPv6:::1] & |b@[1.2.3.4]"},
        {"no address: blank", "x y", ""},
        {"no address: blank in a local part", "x y@z; <x y>; <x@y z>", ""},
        {"no address: halves", "@; @a; a@; \"\"; \"a b\"", ""},
        {"no address: two at signs", "a@b@c", ""},
        {"no address: names", "Smith, Anna", ""},
        {"no address: domain without ASCII form", "a@ő..hu", ""},
        {"empty pieces", ";; a@x ,;", "|a@x"},
        {"brackets and semicolons in layers", "<<a@b>;>;", "|a@b"},
        {"nothing left", "<;>", ""},
        {"empty", "", ""},
        {"quote never closes", "a\"b@c, \"d@e, f@g", "|f@g"},
        {"bracket never closes", "Anna <a@b, c@d", "Anna|a@b & |c@d"},
        {"line end before a command", "a@b\r\nRCPT TO:<x@y>", "|a@b & |x@y"},
        {"nul within", std::string("a@b\0c", 5), ""},
        {"domain to ascii", "a@Bücher.Example", "|a@xn--bcher-kva.example"},
        {"ascii domain as given", "a@B.Example", "|a@B.Example"},
        {"local part stays", "é@ő.hu", "|é@xn--8fa.hu"},
    };
    for (const auto& row : rows) {
        std::string found;
        for (const _tvEmailAddress& mailbox : parseMailboxes(row.text)) {
            found += (found.empty() ? "" : " & ") + mailbox.name() + '|' + mailbox.address();
        }
        EXPECT_EQ(found, row.mailboxes) << row.name;
    }
}

TEST(ParseMailboxes, UnclosedEverythingIsQuick) {
    EXPECT_EQ(parseMailboxes(std::string(300000, '"') + "<a@b").size(), 1u);
    std::string opening;
    for (int i = 0; i < 100000; ++i) {
        opening += "(<[";
    }
    EXPECT_EQ(parseMailboxes(opening + ",a@b;c@d").size(), 1u);
}

TEST(FormatAddressList, QuotesOrEncodesNames) {
    const char* const rows[][2] = {
        {"", "a@b"},
        {"Anna", "Anna <a@b>"},
        {"Doe, John", "\"Doe, John\" <a@b>"},
        {"Anna Kis", "\"Anna Kis\" <a@b>"},
        {"A.", "\"A.\" <a@b>"},
        {"[A", "\"[A\" <a@b>"},
        {"A-B'c", "A-B'c <a@b>"},
        {"a\"b\\", "\"a\\\"b\\\\\" <a@b>"},
        {"José", "=?utf-8?Q?Jos=C3=A9?= <a@b>"},
    };
    for (const auto& [name, value] : rows) {
        const _tvEmailAddress mailbox(name, "a@b");
        EXPECT_EQ(formatAddressList({&mailbox, 1}, 65001), value);
    }
}

TEST(FormatAddressList, WritesAddressesInTheFormAskedFor) {
    const struct {
        const char* name;
        const char* address;
        const char* sevenBit;
        const char* utf8;
    } rows[] = {
        {"", "józsef@b.c", "=?utf-8?Q?j=C3=B3zsef=40b.c?= :;", "józsef@b.c"},
        {"Kis, J", "ó@b.c", "=?utf-8?Q?Kis=2C_J_=C3=B3=40b.c?= :;", "\"Kis, J\" <ó@b.c>"},
        {"J\xC3\xB3", "a@ő.hu", "=?iso-8859-2?Q?J=F3?= <a@xn--8fa.hu>",
         "=?iso-8859-2?Q?J=F3?= <a@xn--8fa.hu>"},
        {"", "\"ó a\"@b", "=?utf-8?Q?=22=C3=B3_a=22=40b?= :;", "\"ó a\"@b"},
    };
    for (const auto& row : rows) {
        const std::vector<_tvEmailAddress> list = {{"", "x@y"}, {row.name, row.address}};
        const std::string seven = formatAddressList(list, 28592, AddressForm::SevenBit);
        EXPECT_EQ(seven, "x@y, " + std::string(row.sevenBit));
        EXPECT_EQ(formatAddressList(list, 28592, AddressForm::Utf8),
                  "x@y, " + std::string(row.utf8));
    }
}

// The item that makes a line 69 characters or more starts the next one.
TEST(FormatAddressList, FoldsByTheRule) {
    const auto listOf = [](std::initializer_list<size_t> sizes) {
        std::vector<_tvEmailAddress> list;
        for (const size_t size : sizes) {
            list.emplace_back("", std::string(size - 2, 'a') + "@b");
        }
        return formatAddressList(list, 65001);
    };
    EXPECT_EQ(linesOf(listOf({30, 36})).size(), 1u);  // 30 + 2 + 36 = 68
    EXPECT_EQ(linesOf(listOf({30, 37})).size(), 2u);
    EXPECT_EQ(linesOf(listOf({100})).size(), 1u);
    const std::vector<std::string> lines = linesOf(listOf({30, 30, 30, 30, 30}));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(lines[0].ends_with(",") && lines[1].ends_with(","));
    EXPECT_EQ(lines[1][0], ' ');
    EXPECT_EQ(lines[1][1], 'a');
    EXPECT_EQ(lines[1].size(), 1 + 30 + 2 + 30 + 1u);
}

TEST(FormatAddressList, LongNamesAreSeveralWords) {
    std::string name;
    for (int i = 0; i < 60; ++i) {
        name += "ő";
    }
    const std::vector<_tvEmailAddress> list = {{name, "a@b"}, {std::string(2000, 'x'), "c@d"}};
    const std::string value = formatAddressList(list, 28592);
    EXPECT_EQ(decodeWords(value), name + std::string(2000, 'x'));
    for (const std::string& line : linesOf(value)) {
        EXPECT_LE(line.size(), 76u + sizeof " <a@b>, ");
    }
}

}  // namespace
}  // namespace tv::test
