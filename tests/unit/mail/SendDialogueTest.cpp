// Sends as dialogues: each row of tests/data/mail/sends.txt, logins.txt and reuse.txt is a test,
// played with the server's bytes arriving whole, line by line and byte by byte; the documented ones
// once more the way the export sends, behind a trial connection. With TV_WRITE_FAULTS set their
// document is written.
#include <cstdlib>
#include <fstream>

#include "base/Base64.h"
#include "mail/sasl/NtlmVersion.h"
#include "tests/fixtures/TestData.h"
#include "tests/unit/mail/MailWorld.h"
#ifdef TV_HAVE_LIBCRYPTO
#include "tests/unit/mail/peer/TlsMailPeer.h"
#endif

namespace tv::test {
namespace {

// One send, or a trial.
struct Act {
    std::vector<std::pair<std::string, std::string>> settings;
    std::vector<std::string> links, ending, logged, unlogged;
    std::string word;
    bool retried = false;

    bool sent() const { return word == "Success"; }
    bool has(std::string_view wanted) const { return setting(wanted, "none") != "none"; }
    std::string setting(std::string_view wanted, const std::string& otherwise) const {
        for (const auto& [name, value] : settings) {
            if (name == wanted) return value;
        }
        return otherwise;
    }
    // The status word of the last line of the transcript.
    std::string lastWord() const {
        return ending.empty() ? "" : ending.back().substr(0, ending.back().find(": "));
    }
};

struct Row {
    std::string section, name, chapter, fault, remedy;
    std::vector<Act> acts{1};

    bool meetsTrial() const { return chapter == "Connecting and greeting"; }
    bool playable() const;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

// "{TEXT*3}" is the text three times, "{=TEXT}" its base64; the inner ones first.
std::string expanded(std::string text) {
    for (size_t end = 0; (end = text.find('}', end)) != std::string::npos;) {
        const size_t at = text.rfind('{', end++);
        if (at == std::string::npos) continue;
        const std::string inner = text.substr(at + 1, end - at - 2);
        const size_t star = inner.rfind('*');
        std::string out;
        if (inner.starts_with('=')) {
            out = base64Encode(std::string_view(inner).substr(1));
        } else if (star != std::string::npos) {
            for (int i = std::stoi(inner.substr(star + 1)); i > 0; --i)
                out += inner.substr(0, star);
        } else {
            continue;
        }
        text.replace(at, end - at, out);
        end = at + out.size();
    }
    return text;
}

// With "\n" and "\x0D" read.
std::string unescaped(std::string text) {
    for (size_t at = 0; (at = text.find('\\', at)) != std::string::npos; ++at) {
        if (text[at + 1] == 'n') text.replace(at, 2, "\n");
        if (text[at + 1] != 'x') continue;
        text.replace(at, 4, 1, static_cast<char>(std::stoi(text.substr(at + 2, 2), nullptr, 16)));
    }
    return text;
}

// Parts of a text, apart by a mark.
std::vector<std::string> parted(std::string_view text, std::string_view mark) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const size_t end = std::min(text.find(mark), text.size());
        parts.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + mark.size(), text.size()));
    }
    return parts;
}

void addSettings(Act& act, const std::string& value) {
    constexpr std::pair<std::string_view, std::string_view> kUsual[] = {
        {"user", "SmtpUsername=tester"},
        {"password", "SmtpPassword=hidden-word"},
        {"token", "OAuth2AccessToken=hidden-token"}};
    for (std::string part : parted(value, "; ")) {
        for (const auto& [name, usual] : kUsual) {
            if (part == name) part = usual;
        }
        const size_t equals = std::min(part.find('='), part.size());
        act.settings.emplace_back(part.substr(0, equals),
                                  part.substr(std::min(equals + 1, part.size())));
    }
}

void addField(Row& row, const std::string& mark, const std::string& text) {
    if (mark == "+") row.acts.emplace_back();
    Act& act = row.acts.back();
    const std::string value = expanded(unescaped(text));
    if (mark == ":" || mark == "+") addSettings(act, value);
    if (mark == ">" || mark == ">>") act.links.push_back(value);
    if (mark == ">>") act.retried = true;
    if (mark == "=") act.ending.push_back(value);
    if (mark == "!") act.word = value;
    if (mark == "~") act.logged.push_back(value);
    if (mark == "-") act.unlogged.push_back(value);
    if (mark != "@") return;
    row.fault = value.substr(0, value.find(" | "));
    row.remedy = value.substr(row.fault.size() + 3);
}

bool isField(std::string_view text) {
    return text.starts_with(">> ") ||
           (text.size() > 1 && text[1] == ' ' && contains(":>=!~-+@", text.substr(0, 1)));
}

// A head and its fields, the whole in one line.
Row readRow(Row row, const std::string& text) {
    std::string field;
    bool inHead = true;
    const auto finish = [&] {
        const size_t blank = std::min(field.find(' '), field.size());
        if (inHead) row.name = field;
        if (!inHead) addField(row, field.substr(0, blank), field.substr(blank + 1));
        inHead = false;
    };
    for (const std::string& part : parted(text, "  ")) {
        if (!field.empty() && !isField(part)) {
            field += "  " + part;
            continue;
        }
        if (!field.empty()) finish();
        field = part;
    }
    finish();
    return row;
}

void complete(Act& act) {
    if (act.has("trial")) return;
    if (act.ending.empty() && act.word.empty()) act.ending = {"250 taken"};
    if (!act.word.empty()) return;
    act.word = contains(act.ending.back(), ": ") ? act.lastWord() : "Success";
}

std::vector<Row> readRows(const char* file) {
    std::vector<std::string> texts;
    for (const std::string& line :
         parted(fileText(testDataPath(std::string("mail/") + file)), "\n")) {
        if (line.empty() || line[0] == '#') continue;
        const std::string text(trimmed(line));
        if (line[0] != ' ') texts.push_back(text);
        if (line[0] == ' ') texts.back() += (isField(text) ? "  " : " ") + text;
    }
    std::vector<Row> rows;
    Row section;  // and the fields of all its rows
    for (const std::string& text : texts) {
        if (text[0] == '[') {
            section = readRow({}, text);
            section.section = section.name.substr(1, section.name.size() - 2);
        } else {
            rows.push_back(readRow(section, text));
        }
    }
    for (Row& row : rows) {
        for (Act& act : row.acts)
            complete(act);
    }
    return rows;
}

std::vector<Row> allRows() {
    std::vector<Row> rows;
    for (const char* file : {"sends.txt", "logins.txt", "reuse.txt"}) {
        for (Row& row : readRows(file)) {
            row.chapter = file == std::string_view("logins.txt") ? "The login" : row.section;
            rows.push_back(std::move(row));
        }
    }
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
constexpr bool kHasTlsPeer = false;  // where no OpenSSL is, rows with its server are skipped

void serveTls(MailWorld&) {}
#endif

bool Row::playable() const {
    return kHasTlsPeer || acts[0].links.empty() || acts[0].links[0] != "tls";
}

// "{1234 bytes}" becomes "{N bytes}": sizes are other tests' matter.
std::string withoutSizes(std::string text) {
    for (size_t from = 0; (from = text.find('{', from)) != std::string::npos; ++from) {
        const size_t end = text.find_first_not_of("0123456789", from + 1);
        if (end != from + 1 && end != std::string::npos) {
            text.replace(from + 1, end - from - 1, "N");
        }
    }
    return text;
}

class Play {
public:
    explicit Play(Delivery delivery) : delivery_(delivery) {}
    ~Play() { setDefaultNtlmVersion(2); }

    void arrange(const Act& act) {
        for (const auto& [name, value] : act.settings) {
            // The names of properties begin with a capital, those of the row's own settings do not.
            if (isAsciiUpper(name[0])) world.set(name, value);
            if (name == "name") world.net.name(value, {kServer});
            if (name == "package") world.security.available = value;
            if (name == "ntlm") setDefaultNtlmVersion(std::stoi(value));
            if (name == "wait") world.clock.advanceMs(std::stoul(value));
            if (name == "clear") world.mailMan.ClearSmtpSessionLog();
        }
        port_ = act.setting("port", act.setting("SmtpPort", port_));
        for (const std::string& link : act.links)
            serve(act, link);
    }

    void compose(const Act& act) {
        std::vector<std::string> recipients = {act.setting("to", "1")};
        if (!contains(recipients[0], "@")) {
            const size_t count = std::stoul(recipients[0]);
            recipients = {kFirst, kSecond, "dora@to.test"};
            recipients.resize(count);
        }
        world.compose(recipients, act.setting("from", kSender));
    }

    void act(const Act& act) {
        arrange(act);
        const std::string before = world.transcript();
        world.clock.sleeps.clear();
        const bool isTrial = act.has("trial");
        const bool done = isTrial ? world.mailMan.VerifySmtpConnection() : world.send();
        EXPECT_EQ(done, isTrial ? act.word.empty() : act.sent());
        EXPECT_EQ(world.net.connects.size(), links_);
        EXPECT_EQ(world.security.open, 0);
        EXPECT_EQ(world.clock.sleeps,
                  act.retried ? std::vector<uint32_t>{500} : std::vector<uint32_t>());
        if (isTrial) {
            EXPECT_EQ(world.transcript(), before) << "the transcript is the send's";
        } else {
            judgeTranscript(act, world.transcript().substr(before.size()));
        }
        judgeLog(act);
    }

    MailWorld world;

private:
    void serve(const Act& act, const std::string& link) {
        const int port = std::stoi(port_);
        ++links_;
        if (link == "refuse") return world.net.refuse(kServer, port);
        if (link == "silent") return world.net.silent(kServer, port);
        if (link == "unreachable") return world.net.unreachable(kServer, port);
        if (link == "tls") return serveTls(world);
        FakeLink& served = world.serve(link, port);
        served.delivery = act.has("whole") ? Delivery::Whole : delivery_;
        served.sendWindow = std::stoul(act.setting("takes", "1000000000"));
        served.drainMs = 29000;
        served.maxSend = std::stoul(act.setting("pieces", "1000000"));
    }

    void judgeTranscript(const Act& act, const std::string& added) {
        EXPECT_EQ(world.word(), act.word);
        std::string ending;
        for (const std::string& line : act.ending)
            ending += line + "\r\n";
        const std::string shown = withoutSizes(added);
        EXPECT_TRUE(act.has("clear") ? shown == ending : shown.ends_with(ending))
            << ending << "is no end of\n"
            << shown;
        expectNothingShown(shown);
        const std::string log = world.logText();
        const bool spokeOfLogin =
            contains(shown, "\nAUTH ") || contains(shown, "{PasswordOrCredentials}");
        const bool warned = contains(log, "not encrypted");  // perhaps of a login that ends before
        EXPECT_TRUE(warned == spokeOfLogin || (warned && !act.sent())) << log;
        EXPECT_EQ(contains(log, "smtpAuth.error: AuthFailure"), act.word == "AuthFailure") << log;
        EXPECT_TRUE(act.word != "AuthFailure" || contains(log, "smtpAuth.success: 0")) << log;
    }

    void judgeLog(const Act& act) {
        std::string log = world.logText();
        EXPECT_EQ(contains(log, "Reconnecting to the SMTP server and retrying..."), act.retried);
        for (const std::string& text : act.unlogged)
            EXPECT_FALSE(contains(log, text)) << text << "\nin\n" << log;
        for (const std::string& text : act.logged)
            EXPECT_TRUE(contains(log, text)) << text << "\nnot in\n" << log;
        for (const std::string& text : act.logged)
            log = replaceAll(log, text, "");
        expectNothingShown(log);  // but what the row says
    }

    Delivery delivery_;
    std::string port_ = "25";
    size_t links_ = 0;
};

// What the host reads of a fault: of a trial a line of the log, else the end of the transcript.
std::string quoted(const Row& row) {
    const Act& act = row.acts[0];
    if (act.lastWord() == act.word) {
        return row.meetsTrial() ? act.ending.back().substr(act.word.size() + 2) : act.ending.back();
    }
    if (row.meetsTrial()) return act.logged.back();
    return act.ending.size() == 1 ? act.ending[0] : act.ending[0] + "\r\n" + act.ending[1];
}

// The steps of the send export.
void playAsExport(const Row& row) {
    SCOPED_TRACE("behind a trial connection");
    const Act& act = row.acts[0];
    Play play(Delivery::Whole);
    MailWorld& world = play.world;
    if (!row.meetsTrial()) {
        const bool piped = !act.links.empty() && act.links[0].starts_with("open-piped");
        world.serve(piped ? "open-piped; quit" : "trial");
    }
    play.arrange(act);
    play.compose(act);
    EXPECT_EQ(world.mailMan.VerifySmtpConnection(), !row.meetsTrial());
    EXPECT_EQ(world.transcript(), "");
    if (row.meetsTrial()) {
        EXPECT_TRUE(contains(world.logText(), quoted(row))) << world.logText();
        return;
    }
    EXPECT_EQ(world.send(), act.sent());
    if (act.sent()) return;
    EXPECT_TRUE(world.transcript().ends_with(quoted(row) + "\r\n")) << world.transcript();
}

class SendDialogue : public testing::TestWithParam<Row> {};

TEST_P(SendDialogue, row) {
    const Row& row = GetParam();
    if (!row.playable()) GTEST_SKIP() << "no server by OpenSSL here";
    for (const Delivery delivery : {Delivery::Whole, Delivery::Lines, Delivery::Bytes}) {
        SCOPED_TRACE(row.name + ", delivery " + std::to_string(static_cast<int>(delivery)));
        Play play(delivery);
        play.compose(row.acts[0]);
        for (const Act& act : row.acts)
            play.act(act);
    }
    if (!row.fault.empty()) playAsExport(row);
}

// "The envelope", "DATA refused" is TheEnvelope_DATARefused.
std::string testName(const testing::TestParamInfo<Row>& info) {
    std::string name;
    bool begins = true;
    for (const char c : info.param.section + "_" + info.param.name) {
        const bool isKept = isAsciiAlnum(c) || c == '_';
        if (isKept) name += begins ? asciiUpper(c) : c;
        begins = !isKept && c != '\'';
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(Rows, SendDialogue, testing::ValuesIn(allRows()), testName);

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
    std::string chapter;
    for (const Row& row : allRows()) {
        if (row.fault.empty()) continue;
        if (std::exchange(chapter, row.chapter) != row.chapter) {
            text += "\n## " + chapter +
                    "\n\n| fault | returned | what `getLastError` says | what to change |\n"
                    "|---|---|---|---|\n";
        }
        EXPECT_NE(row.remedy, "") << row.fault;
        const std::string says = "`" + replaceAll(quoted(row), "\r\n", "` `") + "`";
        text += "| " + row.fault + " | " + (row.acts[0].sent() ? "true | nothing" : "false | ") +
                (row.acts[0].sent() ? "" : says) + " | " + row.remedy + " |\n";
    }
    return text;
}

TEST(SendFaults, areDocumented) {
    const std::string path = testDataPath("../../docs/faults.md");
    const std::string wanted = document();
    if (std::getenv("TV_WRITE_FAULTS")) std::ofstream(path, std::ios::binary) << wanted;
    EXPECT_EQ(fileText(path), wanted) << "run once with TV_WRITE_FAULTS=1";
}

}  // namespace
}  // namespace tv::test
