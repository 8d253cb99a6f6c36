// Whole sends as dialogues (tests/data/mail/sends.txt and logins.txt). Each row is played with the
// server's bytes arriving whole, line by line and byte by byte; the documented ones once more the
// way the export sends, behind a trial connection. With TV_WRITE_FAULTS set their document is
// written.
#include <cstdlib>
#include <fstream>

#include "base/Ascii.h"
#include "tests/fixtures/TestData.h"
#include "tests/unit/mail/LoginWorld.h"
#ifdef TV_HAVE_LIBCRYPTO
#include "tests/unit/mail/peer/TlsMailPeer.h"
#endif

namespace tv::test {
namespace {

const char* const kConnecting = "Connecting and greeting";  // what the trial meets as well

struct Row {
    std::string section, name, fault, remedy, word;
    std::vector<std::pair<std::string, std::string>> settings;
    std::vector<std::string> links, ending, logged;
    bool retried = false;

    bool sent() const { return word == "Success"; }
    bool playable() const;
    std::string setting(std::string_view wanted, const char* otherwise) const {
        for (const auto& [name_, value] : settings) {
            if (name_ == wanted) return value;
        }
        return otherwise;
    }
    // The status word of the last line of the transcript.
    std::string lastWord() const {
        return ending.empty() ? "" : ending.back().substr(0, ending.back().find(": "));
    }
};

void addLine(Row& row, char kind, const std::string& value) {
    const size_t equals = value.find('=');
    if (kind == ':') row.settings.emplace_back(value.substr(0, equals), value.substr(equals + 1));
    if (kind == '>') row.links.push_back(value);
    if (kind == '=') row.ending.push_back(value);
    if (kind == '!') row.word = value;
    if (kind == '~') row.logged.push_back(value);
    if (kind == '@') {
        row.fault = value.substr(0, value.find(" | "));
        row.remedy = value.substr(std::min(value.size(), row.fault.size() + 3));
    }
}

void complete(Row& row) {
    for (std::string& link : row.links) {
        if (!link.starts_with("> ")) continue;
        row.retried = true;
        link.erase(0, 2);
    }
    if (row.ending.empty() && row.word.empty()) row.ending = {"250 taken"};
    if (!row.word.empty()) return;
    const bool says = row.ending.back().find(": ") != std::string::npos;
    row.word = says ? row.lastWord() : "Success";
}

std::vector<Row> readRows(const char* file) {
    const std::string text = fileText(testDataPath(std::string("mail/") + file));
    std::vector<Row> rows;
    Row common;  // what stands above the first row of a section
    Row* row = &common;
    for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
        const std::string line = text.substr(at, text.find('\n', at) - at);
        if (line.starts_with("  ")) {
            const size_t value = line[3] == '>' ? 3 : 4;
            addLine(*row, line[2], replaceAll(line.substr(value), "\\n", "\n"));
        } else if (line.starts_with('[')) {
            common = {};
            common.section = line.substr(1, line.size() - 2);
            row = &common;
        } else if (!line.empty() && line[0] != '#') {
            row = &rows.emplace_back(common);
            row->name = line;
        }
    }
    for (Row& each : rows) {
        complete(each);
    }
    return rows;
}

const std::vector<Row>& allRows() {
    static const std::vector<Row> rows = readRows("sends.txt");
    return rows;
}

#ifdef TV_HAVE_LIBCRYPTO
constexpr bool kHasTlsPeer = true;

void serveTls(MailWorld& world) {
    static const tls::test::OpenSslServer server{tls::test::ServerOptions()};
    world.net.name("server.test", {kServer});
    world.net.servePeer(kServer, 25, std::make_unique<TlsMailPeer>(server.context(), true));
}
#else
constexpr bool kHasTlsPeer = false;  // where no OpenSSL is, rows with its server are but read

void serveTls(MailWorld&) {}
#endif

bool Row::playable() const {
    return kHasTlsPeer || links.empty() || links[0] != "tls";
}

void arrange(MailWorld& world, const Row& row, Delivery delivery) {
    for (const auto& [name, value] : row.settings) {
        // The names of properties begin with a capital, those of the row's own settings do not.
        if (isAsciiUpper(name[0])) world.set(name.c_str(), value);
    }
    std::vector<std::string> recipients = {row.setting("to", "1")};
    if (recipients[0].find('@') == std::string::npos) {
        const size_t count = std::stoul(recipients[0]);
        recipients = {kFirst, kSecond, "dora@to.test"};
        recipients.resize(count);
    }
    const std::string from = row.setting("from", kSender);
    world.compose(recipients, from == "none" ? "" : from.c_str());
    for (const std::string& link : row.links) {
        if (link == "refuse") {
            world.net.refuse(kServer, 25);
        } else if (link == "silent") {
            world.net.silent(kServer, 25);
        } else if (link == "unreachable") {
            world.net.unreachable(kServer, 25);
        } else if (link == "tls") {
            serveTls(world);
        } else {
            const int port = std::stoi(row.setting("SmtpPort", "25"));
            FakeLink& served = world.serve(script(link), port);
            served.delivery = delivery;
            served.sendWindow = std::stoul(row.setting("takes", "1000000000"));
            served.drainMs = 29000;
            served.maxSend = std::stoul(row.setting("pieces", "1000000"));
        }
    }
}

// "{1234 bytes}" becomes "{N bytes}": sizes are other tests' matter.
std::string withoutSizes(std::string text) {
    const size_t from = text.find('{') + 1;
    const size_t end = text.find_first_not_of("0123456789", from);
    return from == 0 || end == from ? text : text.replace(from, end - from, "N");
}

void play(const Row& row, Delivery delivery) {
    SCOPED_TRACE(row.name + ", delivery " + std::to_string(static_cast<int>(delivery)));
    MailWorld world;
    arrange(world, row, delivery);
    EXPECT_EQ(world.send(), row.sent());
    EXPECT_EQ(world.word(), row.word);
    std::string ending;
    for (const std::string& line : row.ending) {
        ending += line + "\r\n";
    }
    const std::string transcript = withoutSizes(world.transcript());
    EXPECT_TRUE(transcript.ends_with(ending)) << ending << "is no end of\n" << transcript;
    const std::string log = world.logText();
    for (const std::string& wanted : row.logged) {
        EXPECT_TRUE(contains(log, wanted)) << wanted << "\nin\n" << log;
    }
    EXPECT_EQ(contains(log, "Reconnecting to the SMTP server and retrying..."), row.retried);
    EXPECT_EQ(world.clock.sleeps,
              row.retried ? std::vector<uint32_t>{500} : std::vector<uint32_t>());
    EXPECT_EQ(world.net.connects.size(), row.links.size());
    const bool spokeOfLogin =
        contains(transcript, "\nAUTH ") || contains(transcript, "{PasswordOrCredentials}");
    EXPECT_EQ(contains(log, "not encrypted"), spokeOfLogin) << log;
    const bool refused = row.word == "AuthFailure";
    EXPECT_EQ(contains(log, "smtpAuth.error: AuthFailure"), refused) << log;
    EXPECT_TRUE(!refused || contains(log, "smtpAuth.success: 0")) << log;
    expectNothingShown(world);
}

void playAll(const std::vector<Row>& rows) {
    EXPECT_GT(rows.size(), 70u);
    for (const Row& row : rows) {
        if (!row.playable()) continue;
        play(row, Delivery::Whole);
        play(row, Delivery::Lines);
        play(row, Delivery::Bytes);
    }
}

TEST(SendDialogue, table) {
    playAll(allRows());
}

TEST(SendDialogue, logins) {
    playAll(readRows("logins.txt"));
}

// What the host reads of a fault: of a trial a line of the log, else the end of the transcript.
std::string quoted(const Row& row) {
    if (row.lastWord() == row.word) {
        return row.section == kConnecting ? row.ending.back().substr(row.word.size() + 2)
                                          : row.ending.back();
    }
    if (row.section == kConnecting) return row.logged.back();
    return row.ending.size() == 1 ? row.ending[0] : row.ending[0] + "\r\n" + row.ending[1];
}

std::vector<Row> documentedRows() {
    std::vector<Row> rows = allRows();
    for (Row& row : readRows("logins.txt")) {
        row.section = "The login";
        rows.push_back(std::move(row));
    }
    std::erase_if(rows, [](const Row& row) { return row.fault.empty(); });
    return rows;
}

// The steps of the send export.
TEST(SendDialogue, faultsAreWhatTheHostReads) {
    for (const Row& row : documentedRows()) {
        if (!row.playable()) continue;
        SCOPED_TRACE(row.fault);
        MailWorld world;
        const bool meetsTrial = row.section == kConnecting;
        if (!meetsTrial) {
            const bool piped = !row.links.empty() && row.links[0].starts_with("open-piped");
            world.serve(piped ? "open-piped; quit" : "trial");
        }
        arrange(world, row, Delivery::Whole);
        EXPECT_EQ(world.mailMan.VerifySmtpConnection(), !meetsTrial);
        if (meetsTrial) {
            EXPECT_TRUE(contains(world.logText(), quoted(row))) << world.logText();
            continue;
        }
        world.mailMan.ClearSmtpSessionLog();
        EXPECT_EQ(world.send(), row.sent());
        if (row.sent()) continue;
        EXPECT_TRUE(world.transcript().ends_with(quoted(row) + "\r\n")) << world.transcript();
    }
}

std::string document() {
    std::string text =
        "# What a host learns of a fault\n"
        "\n"
        "`szBrisko` first makes a trial connection. Where that fails, `getLastError` gives the log "
        "of\n"
        "the trial, and the table quotes the line of it that names step and cause. Where the send\n"
        "itself fails, `getLastError` gives the transcript of the dialogue, and the table quotes "
        "its\n"
        "end: the server's refusing reply, or a last line with the status word and the reason.\n";
    std::string section;
    for (const Row& row : documentedRows()) {
        if (section != row.section) {
            section = row.section;
            text += "\n## " + section +
                    "\n\n| fault | returned | what `getLastError` says | what to change |\n"
                    "|---|---|---|---|\n";
        }
        EXPECT_NE(row.remedy, "") << row.fault;
        const std::string says = "`" + (row.sent() ? "" : quoted(row)) + "`";
        text += "| " + row.fault + (row.sent() ? " | true | " : " | false | ") +
                (row.sent() ? "nothing" : replaceAll(says, "\r\n", "` `")) + " | " + row.remedy +
                " |\n";
    }
    return text;
}

TEST(SendDialogue, faultsAreDocumented) {
    const std::string path = testDataPath("../../docs/faults.md");
    const std::string wanted = document();
    if (std::getenv("TV_WRITE_FAULTS")) std::ofstream(path, std::ios::binary) << wanted;
    EXPECT_EQ(fileText(path), wanted) << "run once with TV_WRITE_FAULTS=1";
}

TEST(SendDialogue, endlessRepliesEnd) {
    std::string lines, longLines;
    const std::string words = "220-" + std::string(200000, 'a');
    for (int i = 0; i < 10000; ++i) {
        lines += "220-more\r\n";
        if (i < 18) longLines += words.substr(0, 60000) + "\r\n";
    }
    const std::pair<std::string, const char*> kRows[] = {
        {lines + "220 done\r\n", "The greeting has more than 1000 lines."},
        {longLines + "220 done\r\n", "The greeting has more than 1 MiB."},
        {words + "\r\n", "The greeting has a line of more than 64 KiB."},
        {words, "The greeting has a line of more than 64 KiB."},
    };
    for (const auto& [reply, fault] : kRows) {
        MailWorld world;
        world.compose();
        world.serve({say(reply), silence()});
        world.serve("whole");
        EXPECT_TRUE(world.send());
        EXPECT_TRUE(contains(world.logText(), fault)) << fault;
        EXPECT_LT(world.transcript().size(), 1200000u);
    }
}

// A refusal of the send before explains nothing.
TEST(SendDialogue, everyFailedSendHasItsOwnWords) {
    MailWorld world;
    world.compose();
    world.serve("open; mail; rcpt; data; text 554 no");
    EXPECT_FALSE(world.send());
    EXPECT_TRUE(world.transcript().ends_with("554 no\r\n"));
    world.set("SmtpHost", "");
    EXPECT_FALSE(world.send());
    EXPECT_TRUE(world.transcript().ends_with(
        "554 no\r\nNoSmtpHostname: Application did not provide an SMTP hostname.\r\n"));
}

}  // namespace
}  // namespace tv::test
