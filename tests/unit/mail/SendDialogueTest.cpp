// Sends as dialogues: each row of tests/data/mail/sends.txt, logins.txt and reuse.txt is a test,
// played with the server's bytes arriving whole, line by line and byte by byte; the documented ones
// once more the way the export sends, behind a trial connection. With TV_WRITE_FAULTS set their
// document is written.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "advice/Advice.h"
#include "base/Base64.h"
#include "mail/sasl/NtlmVersion.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/fixtures/TestData.h"
#include "tests/fixtures/hosts/telling_line.h"
#include "tests/unit/mail/MailWorld.h"
#ifdef TV_HAVE_LIBCRYPTO
#include "tests/unit/mail/peer/TlsMailPeer.h"
#endif

namespace tv::test {
namespace {

// One send, or a trial.
struct Act {
    std::map<std::string, std::string> settings;
    std::vector<std::string> links, ending, logged, unlogged;
    std::string word;
    bool retried = false;

    bool has(const char* name) const { return settings.count(name) != 0; }
    std::string setting(const char* name, const std::string& otherwise) const {
        return has(name) ? settings.at(name) : otherwise;
    }
};

struct Row {
    std::string section, name, chapter, fault;
    std::vector<Act> acts{1};

    bool meetsTrial() const { return chapter == "Connecting and greeting"; }
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

// "{TEXT*3}" is the text three times, "{=TEXT}" its base64, "{#0D0A}" bytes, a word one of the
// texts here; the inner ones first.
std::string expanded(std::string text) {
    static const std::map<std::string, std::string> kTexts = {
        {"lost", "ConnectionLost: The connection was lost while waiting for "},
        {"idle", "Timeout: Nothing moved for 30000 ms while "},
        {"twice", "The server may have the message: sending it again may deliver it twice."},
        {"from", "MAIL FROM:<anna@from.test> was answered with:"},
        {"first", "RCPT TO:<bela@to.test> was answered with:"},
        {"second", "RCPT TO:<cili@to.test> was answered with:"},
        {"nobody", "NoValidRecipients: No recipient was accepted."},
        {"last", "the reply to the end of the message data"},
        {"ascii",
         "letters outside ASCII before the \"@\" need SMTPUTF8, which this server does not offer."},
        {"cut", "(a line without its end had come:"},
        {"unconnected", "ConnectFailed: No connection to 10.0.0.1:25:"}};
    for (size_t end = 0; (end = text.find('}', end)) != std::string::npos;) {
        const size_t at = text.rfind('{', end++);
        const std::string inner = text.substr(at + 1, end - at - 2);
        const size_t star = inner.rfind('*');
        std::string out;
        if (kTexts.count(inner)) {
            out = kTexts.at(inner);
        } else if (inner.starts_with('=')) {
            out = base64Encode(std::string_view(inner).substr(1));
        } else if (inner.starts_with('#')) {
            const std::vector<uint8_t> bytes = bytesOfHex(inner.substr(1));
            out.assign(bytes.begin(), bytes.end());
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

void addSettings(Act& act, std::string text) {
    static const std::map<std::string, std::string> kUsual = {
        {"user", "SmtpUsername=tester"},
        {"password", "SmtpPassword=hidden-word"},
        {"token", "OAuth2AccessToken=hidden-token"},
        {"endpoint",
         "OAuth2AccessToken={\"token_endpoint\":\"http://10.0.0.9/t\",\"client_id\":\"me\","
         "\"client_secret\":\"hidden-word\"}"}};
    while (!text.empty()) {
        const size_t end = std::min(text.find("; "), text.size());
        std::string part = text.substr(0, end);
        if (kUsual.count(part)) part = kUsual.at(part);
        const size_t equals = std::min(part.find('='), part.size());
        act.settings[part.substr(0, equals)] = part.substr(std::min(equals + 1, part.size()));
        text.erase(0, end + 2);
    }
}

void addField(Row& row, const std::string& mark, const std::string& text) {
    if (mark == "+") row.acts.emplace_back();
    Act& act = row.acts.back();
    const std::string value = expanded(text);
    if (mark == ":" || mark == "+") addSettings(act, value);
    if (mark == ">" || mark == ">>") act.links.push_back(value);
    if (mark == ">>") act.retried = true;
    if (mark == "=") act.ending.push_back(value);
    if (mark == "!") act.word = value;
    if (mark == "~") act.logged.push_back(value);
    if (mark == "-") act.unlogged.push_back(value);
    if (mark == "@") row.fault = value;
}

// A head and its fields, the whole in one line.
Row readRow(Row row, const std::string& text) {
    static const std::regex kMark("  (>>|[-:>!=~+@]) ");
    std::sregex_iterator at(text.begin(), text.end(), kMark);
    const auto from = [&] {
        return at == std::sregex_iterator() ? text.size() : static_cast<size_t>(at->position());
    };
    row.name = text.substr(0, from());
    while (from() < text.size()) {
        const std::string mark = (*at)[1];
        const size_t value = from() + mark.size() + 3;
        ++at;
        addField(row, mark, text.substr(value, from() - value));
    }
    return row;
}

void complete(Act& act) {
    if (act.has("trial")) return;
    if (act.ending.empty() && act.word.empty()) act.ending = {"250 taken"};
    if (!act.word.empty()) return;
    const size_t colon = act.ending.back().find(": ");
    act.word = colon < act.ending.back().size() ? act.ending.back().substr(0, colon) : "Success";
}

std::vector<Row> allRows() {
    std::vector<Row> rows;
    for (const char* file : {"mail/sends.txt", "mail/logins.txt", "mail/reuse.txt"}) {
        const std::string text = replaceAll(fileText(testDataPath(file)), "\n    ", " ");
        std::istringstream heads(replaceAll(text, "\n  ", "  "));
        Row section;  // and the fields of all its rows
        for (std::string head; std::getline(heads, head);) {
            if (head.empty() || head[0] == '#') continue;
            if (head[0] == '[') {
                section = readRow({}, head);
                section.section = section.name.substr(1, section.name.size() - 2);
                section.chapter = section.section.substr(0, section.section.find(": "));
                continue;
            }
            rows.push_back(readRow(section, head));
            for (Act& act : rows.back().acts)
                complete(act);
        }
    }
    return rows;
}

class Play {
public:
    Play(const Act& first, Delivery delivery) : delivery_(delivery) {
        std::vector<std::string> recipients = {first.setting("to", "1")};
        if (!contains(recipients[0], "@")) {
            const size_t count = std::stoul(recipients[0]);
            recipients = {kFirst, kSecond, "dora@to.test"};
            recipients.resize(count);
        }
        world_.compose(recipients, first.setting("from", kSender));
    }
    ~Play() { setDefaultNtlmVersion(2); }

    void act(const Act& act) {
        arrange(act);
        const std::string before = world_.transcript();
        world_.clock.sleeps.clear();
        const bool isTrial = act.has("trial");
        const bool done = isTrial ? world_.mailMan.VerifySmtpConnection() : world_.send();
        EXPECT_EQ(done, act.word == (isTrial ? "" : "Success"));
        EXPECT_EQ(world_.net.connects.size(), links_);
        EXPECT_EQ(world_.clock.sleeps, std::vector<uint32_t>(act.retried ? 1 : 0, 500));
        std::vector<std::string> asked = world_.mailMan.acceptedRecipients();
        for (const std::string& recipient : world_.mailMan.rejectedRecipients()) {
            EXPECT_EQ(std::count(asked.begin(), asked.end(), recipient), 0) << recipient;
            asked.push_back(recipient);
        }
        const std::string added = world_.transcript().substr(before.size());
        if (isTrial) {
            EXPECT_EQ(added, "") << "the transcript is the send's";
        } else {
            judge(act, std::regex_replace(added, std::regex("\\{\\d+ bytes"), "{N bytes"));
        }
        judgeLog(act);
        const Failure& failure =
            isTrial ? world_.mailMan.trialFailure() : world_.mailMan.sendFailure();
        if (isTrial || world_.mailMan.failedBeforeMessage())
            judgeFinding(failure, world_.logText());
        if (!isTrial) judgeFinding(failure, added);
        lastError = isTrial ? world_.logText() : added;
    }

    std::string lastError;  // what the export would give

private:
    void arrange(const Act& act) {
        for (const auto& [name, value] : act.settings) {
            if (name < "a") world_.set(name, value);  // with a capital: a property
        }
        if (act.has("name")) world_.net.name(act.setting("name", ""), {kServer});
        if (act.has("clear")) world_.mailMan.ClearSmtpSessionLog();
        if (act.has("ntlm")) setDefaultNtlmVersion(1);
        if (act.has("plain")) world_.mailMan.settings().oauth2PlainHttp = true;
        world_.security.available = act.setting("package", "");
        world_.clock.advanceMs(std::stoul(act.setting("wait", "0")));
        port_ = act.setting("port", act.setting("SmtpPort", port_));
        for (const std::string& link : act.links)
            serve(act, link);
    }

    void serve(const Act& act, const std::string& link) {
        const int port = std::stoi(port_);
        ++links_;
        if (link == "refuse") return world_.net.refuse(kServer, port);
        if (link == "silent") return world_.net.silent(kServer, port);
        if (link == "unreachable") return world_.net.unreachable(kServer, port);
        if (link.starts_with("tls")) return serveTls(link == "tls certificate");
        if (link == "post refuse") return world_.net.refuse("10.0.0.9", 80);
        const bool isToken = link.starts_with("post ");
        FakeLink& served =
            isToken ? world_.net.serve("10.0.0.9", 80, script(link)) : world_.serve(link, port);
        served.mayEndEarly |= isToken;
        served.delivery = act.has("whole") ? Delivery::Whole : delivery_;
        served.sendWindow = std::stoul(act.setting("takes", "1000000000"));
        served.drainMs = 29000;
        served.maxSend = std::stoul(act.setting("pieces", "1000000"));
    }

    // demands: a certificate of the client.
    void serveTls([[maybe_unused]] bool demands) {
#ifdef TV_HAVE_LIBCRYPTO
        static const tls::test::OpenSslServer server{tls::test::ServerOptions()};
        const int mode = demands ? SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT : 0;
        SSL_CTX_set_verify(server.context(), mode, nullptr);
        world_.net.name("server.test", {kServer});
        world_.net.servePeer(kServer, 25, std::make_unique<TlsMailPeer>(server.context(), true));
#endif
    }

    void judge(const Act& act, const std::string& transcript) {
        EXPECT_EQ(world_.word(), act.word);
        std::string ending;
        for (const std::string& line : act.ending)
            ending += line + "\r\n";
        EXPECT_TRUE(act.has("clear") ? transcript == ending : transcript.ends_with(ending))
            << ending << "is no end of\n"
            << transcript;
        expectNothingShown(transcript);
        const std::string log = world_.logText();
        const bool spokeOfLogin =
            contains(transcript, "\nAUTH ") || contains(transcript, "{PasswordOrCredentials}");
        const bool warned = contains(log, "not encrypted");  // perhaps of a login that ends before
        EXPECT_TRUE(warned == spokeOfLogin || (warned && act.word != "Success")) << log;
        const bool refused = act.word == "AuthFailure" || contains(log, "one more try with a new");
        EXPECT_EQ(contains(log, "smtpAuth.error: AuthFailure"), refused) << log;
        EXPECT_TRUE(act.word != "AuthFailure" || contains(log, "smtpAuth.success: 0")) << log;
    }

    void judgeLog(const Act& act) {
        const std::string log = world_.logText();
        std::string rest = log;
        EXPECT_EQ(contains(log, "Reconnecting to the SMTP server and retrying..."), act.retried);
        for (const std::string& text : act.unlogged)
            EXPECT_FALSE(contains(log, text)) << text << "\nin\n" << log;
        for (const std::string& text : act.logged) {
            EXPECT_TRUE(contains(log, text)) << text << "\nnot in\n" << log;
            rest = replaceAll(rest, text, "");
        }
        expectNothingShown(rest);  // but what the row says
    }

    // Who has the text alone learns the same; but for what it does not say of a login.
    static void judgeFinding(const Failure& failure, const std::string& lastError) {
        if (!failure) return;
        const advice::Finding wanted = advice::findingOf(failure);
        const advice::Finding found = advice::findingIn(lastError);
        EXPECT_EQ(found.stage, wanted.stage) << lastError;
        EXPECT_EQ(found.repeat, wanted.repeat) << lastError;
        if (contains(wanted.words, "by XOAUTH2 could not go on")) return;
        EXPECT_STREQ(adviceOn(found).change, adviceOn(wanted).change) << found.words << "\n"
                                                                      << wanted.words << "\n"
                                                                      << lastError;
        if (wanted.replyCode == 334) return;
        EXPECT_EQ(found.cause, wanted.cause) << lastError;
        EXPECT_EQ(found.replyCode, wanted.replyCode) << lastError;
        EXPECT_EQ(found.reply, wanted.reply) << lastError;
    }

    MailWorld world_;
    Delivery delivery_;
    std::string port_ = "25";
    size_t links_ = 0;
};

// What the host reads of a fault: of a trial a line of the log, else the end of the transcript.
std::string quoted(const Row& row) {
    const Act& act = row.acts[0];
    const bool hasWord = !act.ending.empty() && act.ending.back().starts_with(act.word + ": ");
    if (hasWord && !row.meetsTrial()) return act.ending.back();
    if (hasWord) return act.ending.back().substr(act.word.size() + 2);
    if (row.meetsTrial()) return act.logged.back();
    return act.ending.size() == 1 ? act.ending[0] : act.ending[0] + "\r\n" + act.ending[1];
}

// The line that a host shows is part of what is documented, and leads to the same remedy.
void judgeTellingLine(const std::string& lastError, const std::string& documented) {
    char line[2000];
    telling_line(lastError.c_str(), line, sizeof line);
    EXPECT_NE(std::string(line), "");
    EXPECT_TRUE(contains(documented, line)) << line << "\nis no part of\n" << documented;
    EXPECT_EQ(advice::tellingLine(lastError), line);
    EXPECT_STREQ(adviceOn(advice::findingIn(documented)).change,
                 adviceOn(advice::findingIn(lastError)).change);
}

// The steps of the send export.
void playAsExport(const Row& row) {
    SCOPED_TRACE("behind a trial connection");
    Play play(row.acts[0], Delivery::Whole);
    Act trial;
    trial.settings = row.acts[0].settings;
    trial.settings["trial"] = "";
    if (row.meetsTrial()) {
        trial.links = row.acts[0].links;
        trial.word = "failed";
        trial.logged = {quoted(row)};
        play.act(trial);
        return judgeTellingLine(play.lastError, quoted(row));
    }
    trial.links = {"trial"};
    play.act(trial);
    play.act(row.acts[0]);
    if (row.acts[0].word != "Success") judgeTellingLine(play.lastError, quoted(row));
}

class SendDialogue : public testing::TestWithParam<Row> {};

TEST_P(SendDialogue, row) {
    const Row& row = GetParam();
    for (const Delivery delivery : {Delivery::Whole, Delivery::Lines, Delivery::Bytes}) {
        SCOPED_TRACE(row.name + ", delivery " + std::to_string(static_cast<int>(delivery)));
        Play play(row.acts[0], delivery);
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

std::vector<Row> playableRows() {
    std::vector<Row> rows = allRows();
#ifndef TV_HAVE_LIBCRYPTO
    std::erase_if(rows, [](const Row& row) {
        const auto& links = row.acts[0].links;
        return !links.empty() && links[0].starts_with("tls");
    });
#endif
    return rows;
}

INSTANTIATE_TEST_SUITE_P(, SendDialogue, testing::ValuesIn(playableRows()), testName);

// As the table has it, with the names of functions as code.
std::string remedyOf(const std::string& lastError) {
    const std::string text = whatHostsChange(adviceOn(advice::findingIn(lastError)));
    static const std::regex kFunction(
        "set[A-Z][A-Za-z]+(\\([01]\\))?|name@domain|Name <name@domain>");
    return std::regex_replace(text, kFunction, "`$&`");
}

// The rows' faults, each with what is to be changed.
std::string documented(const std::string& document) {
    std::string text = document.substr(0, document.find("\n## "));
    std::string chapter;
    for (const Row& row : allRows()) {
        if (row.fault.empty()) continue;
        if (std::exchange(chapter, row.chapter) != row.chapter) {
            text += "\n## " + chapter +
                    "\n\n| fault | returned | what `getLastError` says | what to change |\n"
                    "|---|---|---|---|\n";
        }
        const bool sent = row.acts[0].word == "Success";
        const std::string line = "| " + row.fault + (sent ? " | true | nothing" : " | false | `") +
                                 (sent ? "" : replaceAll(quoted(row), "\r\n", "` `") + "`") + " | ";
        const size_t at = document.find(line) + line.size();
        std::string remedy =
            contains(document, line) ? document.substr(at, document.find(" |\n", at) - at) : "";
        if (!sent) remedy = remedyOf(quoted(row));  // the table's; ours where nothing failed
        EXPECT_GT(remedy.size(), 5u) << row.fault << ": what is to be changed then?";
        text += line + remedy + " |\n";
    }
    return text;
}

TEST(SendFaults, hostsAreShownTheirLine) {
    const auto squeezed = [](const std::string& text) {
        return std::regex_replace(text, std::regex("[\\s*/]+"), " ");
    };
    const std::string header = fileText(testDataPath("../fixtures/hosts/telling_line.h"));
    const std::string lines = squeezed(header.substr(header.find("/* The line of")));
    for (const char* path :
         {"../../README.md", "../../include/emailsending.h", "../../samples/c/first_mail.c"}) {
        EXPECT_TRUE(contains(squeezed(fileText(testDataPath(path))), lines)) << path;
    }
}

TEST(SendFaults, faultsAreDocumented) {
    const std::string path = testDataPath("../../docs/faults.md");
    const std::string document = fileText(path);
    const std::string wanted = documented(document);
    if (std::getenv("TV_WRITE_FAULTS")) std::ofstream(path, std::ios::binary) << wanted;
    EXPECT_EQ(document, wanted) << "run once with TV_WRITE_FAULTS=1";
}

}  // namespace
}  // namespace tv::test
