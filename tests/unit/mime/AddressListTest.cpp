#include "mime/AddressList.h"

#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

struct ParseCase {
    const char* name;
    std::string text;
    std::vector<std::string> mailboxes;  // "name|address"
};

class ParseMailboxes : public testing::TestWithParam<ParseCase> {};

TEST_P(ParseMailboxes, SplitsAndTakesApart) {
    std::vector<std::string> found;
    for (const _tvEmailAddress& mailbox : parseMailboxes(GetParam().text)) {
        found.push_back(mailbox.name() + '|' + mailbox.address());
    }
    EXPECT_EQ(found, GetParam().mailboxes);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ParseMailboxes,
    testing::Values(
        ParseCase{"bare", "a@b.c", {"|a@b.c"}}, ParseCase{"no_at_sign", "root", {"|root"}},
        ParseCase{"with_name", "Anna <a@b.c>", {"Anna|a@b.c"}},
        ParseCase{"quoted_name", "\"Doe, John\" <j@d.e>", {"Doe, John|j@d.e"}},
        ParseCase{
            "escapes_stay_for_the_header", "\"A \\\"B\\\" C\" <a@b.c>", {"A \\\"B\\\" C|a@b.c"}},
        ParseCase{
            "escapes_go_where_a_word_is_written", "\"É \\\"B\\\"\" <a@b.c>", {"É \"B\"|a@b.c"}},
        ParseCase{"escaped_quote_closes_nothing", "\"A \\\"; B\" <a@b>", {"A \\\"; B|a@b"}},
        ParseCase{"semicolons", "a@x; b@y", {"|a@x", "|b@y"}},
        ParseCase{"commas", "a@x, b@y,c@z", {"|a@x", "|b@y", "|c@z"}},
        ParseCase{"mixed", "Anna <a@x>; \"B; C\" <b@y>, c@z", {"Anna|a@x", "B; C|b@y", "|c@z"}},
        ParseCase{"separator_in_brackets", "A (x, y) <a@b>", {"A (x, y)|a@b"}},
        ParseCase{"quoted_local_part", "\"a;b\"@c.d", {"|\"a;b\"@c.d"}},
        ParseCase{"empty_pieces", ";; a@x ,;", {"|a@x"}},
        ParseCase{"brackets_and_semicolons_in_layers", "<<a@b>;>;", {"|a@b"}},
        ParseCase{"nothing_left", "<;>", {}}, ParseCase{"empty", "", {}},
        ParseCase{"quote_never_closes", "a\"b@c, d@e", {"|a\"b@c", "|d@e"}},
        ParseCase{"bracket_never_closes", "Anna <a@b, c@d", {"Anna|a@b", "|c@d"}},
        ParseCase{"line_ends_vanish", "a@b\r\nRCPT TO:<x@y>", {"a@bRCPT TO:|x@y"}},
        ParseCase{"nul_vanishes", std::string("a@b\0c", 5), {"|a@bc"}},
        ParseCase{"domain_to_ascii", "a@Bücher.Example", {"|a@xn--bcher-kva.example"}},
        ParseCase{"ascii_domain_as_given", "a@B.Example", {"|a@B.Example"}},
        ParseCase{"local_part_stays", "é@ő.hu", {"|é@xn--8fa.hu"}}),
    CaseName{});

TEST(ParseMailboxes, UnclosedEverythingIsQuick) {
    EXPECT_EQ(parseMailboxes(std::string(300000, '"')).size(), 1u);
    std::string opening;
    for (int i = 0; i < 100000; ++i) {
        opening += "(<[";
    }
    EXPECT_EQ(parseMailboxes(opening + ",a@b").size(), 2u);
}

struct FormatCase {
    const char* name;
    const char* displayName;
    const char* value;
};

class FormatAddress : public testing::TestWithParam<FormatCase> {};

TEST_P(FormatAddress, WithName) {
    const _tvEmailAddress mailbox(GetParam().displayName, "a@b");
    EXPECT_EQ(formatAddressList({&mailbox, 1}, 65001), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Table, FormatAddress,
    testing::Values(FormatCase{"none", "", "a@b"}, FormatCase{"plain", "Anna", "Anna <a@b>"},
                    FormatCase{"comma", "Doe, John", "\"Doe, John\" <a@b>"},
                    FormatCase{"blank", "Anna Kis", "\"Anna Kis\" <a@b>"},
                    FormatCase{"full_stop", "A.", "\"A.\" <a@b>"},
                    FormatCase{"bracket", "[A", "\"[A\" <a@b>"},
                    FormatCase{"hyphen_needs_none", "A-B'c", "A-B'c <a@b>"},
                    FormatCase{"quote_as_it_is", "a\"b", "\"a\"b\" <a@b>"},
                    FormatCase{"eight_bit", "José", "=?utf-8?Q?Jos=C3=A9?= <a@b>"}),
    CaseName{});

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
