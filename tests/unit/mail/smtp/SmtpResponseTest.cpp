#include "mail/smtp/SmtpResponse.h"

#include <gtest/gtest.h>

#include "log/tvLogger.h"
#include "mail/smtp/ReplyHints.h"

namespace tv {
namespace {

// Feeds lines until the reader has an opinion.
ReplyState read(SmtpReplyReader& reader, const std::vector<std::string>& lines) {
    ReplyState state = ReplyState::NeedMore;
    for (const std::string& line : lines) {
        EXPECT_EQ(state, ReplyState::NeedMore) << line;
        state = reader.addLine(line);
    }
    return state;
}

struct Row {
    const char* name;
    std::vector<std::string> lines;
    ReplyState state;
    int32_t code;
};

TEST(SmtpReplyReader, judgesReplies) {
    const Row rows[] = {
        {"one line", {"250 ok\r\n"}, ReplyState::Complete, 250},
        {"two lines", {"250-A\r\n", "250 B\r\n"}, ReplyState::Complete, 250},
        {"code alone", {"250\r\n"}, ReplyState::Complete, 250},
        {"code and blank", {"354 \r\n"}, ReplyState::Complete, 354},
        {"code and NUL", {std::string("250\0x\r\n", 7)}, ReplyState::Complete, 250},
        {"the last line's code counts", {"250-A\r\n", "550 B\r\n"}, ReplyState::Complete, 550},
        {"unfinished", {"250-A\r\n"}, ReplyState::NeedMore, 0},
        {"unfinished bare", {"250-\r\n"}, ReplyState::NeedMore, 0},
        {"two digits", {"25\r\n"}, ReplyState::Malformed, 0},
        {"empty", {"\r\n"}, ReplyState::Malformed, 0},
        {"other separator", {"250_ok\r\n"}, ReplyState::Malformed, 0},
        {"tab", {"250\tok\r\n"}, ReplyState::Malformed, 0},
        {"four digits", {"2500 ok\r\n"}, ReplyState::Malformed, 0},
        {"letters", {"abc ok\r\n"}, ReplyState::Malformed, 0},
        {"sign", {"-50 ok\r\n"}, ReplyState::Malformed, 0},
        {"blank first", {" 250 ok\r\n"}, ReplyState::Malformed, 0},
        {"code nought", {"000 ok\r\n"}, ReplyState::Malformed, 0},
        {"junk after a continuation", {"250-A\r\n", "junk\r\n"}, ReplyState::Malformed, 0},
    };
    for (const Row& row : rows) {
        SmtpReplyReader reader("X");
        EXPECT_EQ(read(reader, row.lines), row.state) << row.name;
        EXPECT_EQ(reader.reply().statusCode, row.code) << row.name;
        EXPECT_EQ(reader.reply().lines, row.lines) << row.name;
    }
}

TEST(SmtpReplyReader, keepsItsLimits) {
    struct {
        const char* name;
        size_t lineSize;  // without the line end
        size_t lines;     // of continuation, before a last short one
        ReplyState state;
    } const rows[] = {
        {"longest line", 65536, 0, ReplyState::Complete},
        {"longer line", 65537, 0, ReplyState::TooLarge},
        {"most lines", 10, 999, ReplyState::Complete},
        {"more lines", 10, 1000, ReplyState::TooManyLines},
        {"too much in all", 60000, 18, ReplyState::TooLarge},
    };
    for (const auto& row : rows) {
        SmtpReplyReader reader("X");
        ReplyState state = ReplyState::NeedMore;
        for (size_t i = 0; i < row.lines && state == ReplyState::NeedMore; ++i) {
            state = reader.addLine("250-" + std::string(row.lineSize - 4, 'a') + "\r\n");
        }
        const size_t last = row.lines == 0 ? row.lineSize - 4 : 0;
        if (state == ReplyState::NeedMore) {
            state = reader.addLine("250 " + std::string(last, 'a') + "\r\n");
        }
        EXPECT_EQ(state, row.state) << row.name;
    }
}

TEST(SmtpResponse, successIsTwoHundred) {
    for (const int32_t code : {0, 100, 199, 300, 354, 421, 550, -250}) {
        EXPECT_FALSE((SmtpResponse{"", code, {}}.isSuccess())) << code;
    }
    EXPECT_TRUE((SmtpResponse{"", 200, {}}.isSuccess()));
    EXPECT_TRUE((SmtpResponse{"", 299, {}}.isSuccess()));
}

std::string hintsFor(int32_t code, const std::string& line) {
    _tvLogger log;
    smtp::logLineHint(log, line);
    smtp::logReplyHints(log, {"", code, {"250-first\r\n", line}});
    std::string text;
    log.getText(text);
    return text;
}

TEST(ReplyHints, appearForTheirReplyOnly) {
    struct {
        int32_t code;
        const char* line;
        const char* wanted;  // nullptr: no hint at all
    } const rows[] = {
        {501, "501 Syntax error - line too long\r\n", "quoted-printable or base64"},
        {554, "554 5.2.0 STOREDRV; SendAsDeniedException.MapiException\r\n", "office365_hints:"},
        {550, "550 SendAsDeniedException.MapiException\r\n", nullptr},
        {535, "535 5.7.8 see support/mail/?p=BadCredentials x\r\n", "gmail_hints:"},
        {535, "535 5.7.8 bad password\r\n", nullptr},
    };
    const std::string none = hintsFor(250, "250 ok\r\n");
    for (const auto& row : rows) {
        const std::string text = hintsFor(row.code, row.line);
        if (row.wanted) {
            EXPECT_NE(text.find(row.wanted), std::string::npos) << text;
        } else {
            EXPECT_EQ(text, none);
        }
    }
}

}  // namespace
}  // namespace tv
