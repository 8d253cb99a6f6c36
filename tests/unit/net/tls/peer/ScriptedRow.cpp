// Reads the rows: setups, edits and acts by their words.
#include "tests/unit/net/tls/peer/ScriptedRow.h"

#include <openssl/x509.h>

#include <sstream>
#include <stdexcept>

#include "tests/fixtures/HexBytes.h"

namespace tv::tls::test {
namespace {

using Words = std::vector<std::string>;

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);) {
        const size_t first = part.find_first_not_of(' ');
        if (first == part.npos) part.clear();
        if (first != part.npos) part = part.substr(first, part.find_last_not_of(' ') + 1 - first);
        parts.push_back(part);
    }
    return parts;
}

Words wordsOf(const std::string& text) {
    Words words = split(text, ' ');
    std::erase(words, "");
    return words;
}

template <typename T = size_t>
T number(const std::string& text) {
    size_t used = 0;
    const long n = std::stol(text, &used, text.starts_with("0x") ? 16 : 10);
    if (used != text.size()) throw std::runtime_error("no number: " + text);
    return static_cast<T>(n);
}

template <typename T = uint16_t>
T hex16(const std::string& text) {
    const Bytes bytes = bytesFrom(text);
    if (bytes.size() != 2) throw std::runtime_error("not two bytes: " + text);
    return static_cast<T>(bytes[0] << 8 | bytes[1]);
}

// How often the word at a place says, "x33" or nothing.
size_t countIn(const Words& words, size_t at) {
    return words.size() > at ? number(words[at].substr(1)) : 1;
}

// "2048:9B" is a number of so many bits with that last byte.
Bytes numberOf(const std::string& text) {
    const Words parts = split(text, ':');
    const size_t bits = number(parts[0]);
    Bytes n((bits + 7) / 8, 0xC5);
    n[0] = static_cast<uint8_t>(0x80 >> ((8 - bits % 8) % 8));
    n.back() = bytesFrom(parts.at(1)).at(0);
    return n;
}

Bytes exponentOf(const std::string& text) {
    return bytesFrom(split(text, ':').at(2));
}

std::vector<std::string> expanded(const std::string& text) {
    const size_t open = text.rfind('{');
    if (open == text.npos) return {text};
    const size_t close = text.find('}', open);
    std::vector<std::string> all;
    for (const std::string& choice : split(text.substr(open + 1, close - open - 1) + ",", ',')) {
        for (std::string& one : expanded(text.substr(0, open) + choice + text.substr(close + 1))) {
            all.push_back(std::move(one));
        }
    }
    return all;
}

constexpr std::string_view kSteps[] = {
    "Retry",    "Hello", "Extensions", "Request", "Certificate", "Status",       "Verify", "Params",
    "Exchange", "Done",  "Ticket",     "Ccs",     "Finished",    "HelloRequest", "Update"};

constexpr std::string_view kActs[] = {"emit", "send", "sendClear", "wire", "now"};

// Version 3, a negative serial number, no name of an algorithm, an unreadable issuer, unreadable
// dates, no subject; the key; an unknown critical extension, no signature.
Bytes oddCertificate() {
    uint8_t* info = nullptr;
    const int size = i2d_PUBKEY(keyOf("P-256"), &info);
    const Bytes key(info, info + size);
    OPENSSL_free(info);
    return joined({bytesFrom("30818b+308183+a003020102+0202ff80+3000+30030c01ff+300417026e6f+3000"),
                   key, bytesFrom("a30e300c300a06022a070101ff040100+3000+030100")});
}

void resume(Ends& ends) {
    Talk first(ends.server, ends.client);
    EXPECT_EQ(first.pump().verdict(), "legal") << first.logText();
    ends.client.session = first.engine.takeSession().value();
    EXPECT_FALSE(first.engine.takeSession());
    ends.server.sessionId = first.server.sessionId;
    ends.server.sessionSecret = first.server.sessionSecret;
}

Bytes u24(std::ptrdiff_t n) {
    return {static_cast<uint8_t>(n >> 16), static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n)};
}

// Words that stand for others.
const std::map<std::string, const char*> kShort = {
    {"13", "version=0304 suite=1301 key=P-256 scheme=0403"},
    {"12", "version=0303 suite=C02B key=P-256 scheme=0403"},
    {"cbc12", "12 suite=C009"},
    {"rsa12", "version=0303 suite=C02F key=RSA-2048 scheme=0401"},
    {"plainRsa", "rsa12 suite=009C"},
    {"dhe", "rsa12 suite=009E"},
    {"11", "version=0302 suite=C009 key=P-256"},
    {"10", "version=0301 suite=C009 key=P-256"},
    {"asks12", "12 flight=Hello/Certificate/Exchange/Request/Done"},
    {"asks13", "13 flight=Hello/Extensions/Request/Certificate/Verify/Finished"},
    {"status", "12 flight=Hello/Certificate/Status/Exchange/Done"},
};

// One word of a setup, which may have a "=" and a value, or "no" in front of a switch.
void set(Ends& ends, const std::string& text) {
    if (const auto at = kShort.find(text); at != kShort.end()) {
        for (const std::string& word : wordsOf(at->second)) {
            set(ends, word);
        }
        return;
    }
    ServerSetup& s = ends.server;
    TlsSettings& client = ends.client;
    auto& session = client.session;
    const size_t end = std::min(text.find('='), text.size());
    const std::string value = text.substr(std::min(end + 1, text.size()));
    const bool off = text.starts_with("no");
    std::string word = text.substr(off ? 2 : 0, off ? text.npos : end);
    word[0] = static_cast<char>(std::tolower(word[0]));
    // clang-format off
    const std::map<std::string, bool*> switches = {
        {"retry", &s.retry}, {"retryGroup", &s.retryForGroup}, {"share", &s.keyShare},
        {"master", &s.extendedMaster}, {"renegotiationInfo", &s.secureRenegotiation},
        {"ticket", &s.ticket}, {"echo", &s.echo}, {"emptyRecords", &s.emptyRecords},
        {"fallback", &client.fallback}, {"verifies", &client.verifiesServer},
        {"reuse", &client.options.reuseSessions}, {"gcm", &client.options.gcm},
        {"disable13", &client.options.disableTls13}, {"random", &ends.randomWorks},
        {"zeroTicket", &client.options.zeroLengthTicket},
        {"laterRequests", &client.options.postHandshakeAuth},
    };
    const std::map<std::string, std::function<void()>> words = {
        {"version", [&] { s.version = hex16(value); }},
        {"suite", [&] { s.suite = hex16(value); }},
        {"key", [&] { s.key = value; }},
        {"scheme", [&] { s.scheme = hex16(value); }},
        {"group", [&] { s.group = number<uint16_t>(value); }},
        {"cookie", [&] { s.cookie = bytesFrom(value); }},
        {"again", [&] { s.editRound = 2; }},
        {"recordSize", [&] { s.recordSize = number(value); }},
        {"padding", [&] { s.padding = number(value); }},
        {"flight", [&] { s.flight = stepsOf(value); }},
        {"certificate", [&] { s.certificate = certificateOf(value); }},
        {"signing", [&] { s.certificate = signingCertificateOf(s.key); }},
        {"oddCertificate", [&] { s.certificate = oddCertificate(); }},
        {"rsaKey", [&] { s.certificate = rsaCertificate(numberOf(value), exponentOf(value)); }},
        {"dhPrime", [&] { s.dhPrime = dhPrime(number<int>(value)); }},
        {"madeUpPrime", [&] { s.dhPrime = numberOf(value); }},
        {"resume", [&] { resume(ends); }},
        {"forgotten", [&] { s.sessionId.clear(), s.sessionSecret.clear(); }},
        {"later", [&] { session->receivedAtMs -= number<uint64_t>(value); }},
        {"lifetime", [&] { session->lifetimeSeconds = number<uint32_t>(value); }},
        {"sessionSuite", [&] { session->suite = hex16(value); }},
        {"lostSecret", [&] { session->secret.clear(); }},
        {"lostId", [&] { session->id.clear(); }},
        {"verify", [&] { session->scope.requireVerify = true; }},
        {"verified", [&] { session->verifiedUntilMs = TestEnvironment().nowMs + number(value); }},
        {"lowest", [&] { client.versions.lowest = hex16<Version>(value); }},
        {"highest", [&] { client.versions.highest = hex16<Version>(value); }},
    };
    // clang-format on
    if (const auto at = switches.find(word); at != switches.end()) {
        *at->second = !off;
    } else if (const auto known = words.find(word); known != words.end()) {
        known->second();
    } else {
        throw std::runtime_error("unknown word: " + text);
    }
}

// One statement about a message. "in 43" in front: about the body of that extension.
void change(const Words& all, Item& m, Items& items) {
    const bool within = all.at(0) == "in";
    const Words w(all.begin() + (within ? 2 : 0), all.end());
    Bytes& b = within ? m.ext(number<uint16_t>(all.at(1))) : m.body;
    const auto value = [&](size_t i) { return bytesFrom(w.at(i)); };
    const auto place = [&] {  // clamped: the length of a signature varies
        const long n = number<long>(w.at(1)), size = static_cast<long>(b.size());
        return b.begin() + (n < 0 ? size + n : std::min(n, size - 1));
    };
    const auto insert = [&](bool clear) {
        Item item;
        item.record = number<uint8_t>(w.at(1)), item.raw = true;
        item.body = value(2), item.plain = clear;
        items.insert(items.begin(), countIn(w, 3), item);
    };
    // clang-format off
    const std::map<std::string, std::function<void()>> verbs = {
        {"at", [&] { std::ranges::copy(value(2), place()); }},
        {"xor", [&] { *place() ^= value(2).at(0); }},
        {"insert", [&] { b.insert(place(), value(2).at(0)); }},
        {"erase", [&] { b.erase(place(), place() + number<long>(w.at(2))); }},
        {"resize", [&] { b.resize(number(w.at(1))); }},
        {"set", [&] { b = value(1); }},
        {"append", [&] { b = joined({b, value(1)}); }},
        {"count24", [&] { std::ranges::copy(u24(b.end() - place() - 3), place()); }},
        {"tail", [&] { m.tail = value(1); }},
        {"length", [&] { m.length = number(w.at(1)); }},
        {"add", [&] { m.exts->push_back({number<uint16_t>(w.at(1)), value(2)}); }},
        {"drop", [&] { m.drop(number<uint16_t>(w.at(1))); }},
        {"noExtensions", [&] { m.exts->clear(); }},
        {"noBlock", [&] { m.exts.reset(); }},
        {"reverse", [&] { std::ranges::reverse(*m.exts); }},
        {"flat", [&] { m.flat(); }},
        {"clear", [&] { m.plain = true; }},
        {"omit", [&] { items.clear(); }},
        {"twice", [&] { items.push_back(m); }},
        {"before", [&] { insert(false); }},
        {"clearBefore", [&] { insert(true); }},
        {"requestsBefore", [&] { items.insert(items.begin(), countIn(w, 1), Item{}); }},
    };
    // clang-format on
    const auto known = verbs.find(w.at(0));
    if (known == verbs.end()) throw std::runtime_error("unknown verb: " + w[0]);
    known->second();
}

// What the server does once the connection stands.
void act(ScriptedTlsServer& server, const Words& w) {
    const std::string& verb = w[0];
    if (verb == "wire") return server.wire(bytesFrom(w.at(1)));
    if (verb == "now") {
        Ends changed{server.setup};
        for (size_t i = 1; i < w.size(); ++i) {
            set(changed, w[i]);
        }
        server.setup = changed.server;
        return;
    }
    for (size_t n = countIn(w, verb == "emit" ? 2 : 3); n > 0; --n) {
        if (verb == "emit") {
            server.emit(stepNamed(w.at(1)));
        } else {
            server.send(number<uint8_t>(w.at(1)), bytesFrom(w.at(2)), verb == "sendClear");
        }
    }
}

// Puts the edits of a script into the setup; its acts remain, and the last message that it names.
std::vector<Words> readScript(const std::string& script, ServerSetup& server, Step& last) {
    std::vector<Words> acts;
    for (const std::string& statement : split(script, ';')) {
        Words words = wordsOf(statement);
        if (std::ranges::count(kActs, words.at(0))) {
            acts.push_back(words);
            continue;
        }
        if (std::ranges::count(kSteps, words[0])) {
            last = stepNamed(words[0]);
            words.erase(words.begin());
        }
        server.edits.emplace(last, [words](Item& m, Items& all) { change(words, m, all); });
    }
    return acts;
}

// "flip 2 34 01" in a script: each byte of the range under the mask, or under two, in a row of its
// own.
std::vector<Row> unflipped(const Row& row) {
    const size_t at = row.script.find("flip ");
    if (at == row.script.npos) return {row};
    const Words w = wordsOf(row.script.substr(at));
    std::vector<Row> rows;
    for (size_t i = number(w.at(1)); i < number(w.at(2)); ++i) {
        for (const std::string& mask : w.size() > 3 ? Words{w[3]} : Words{"01", "80"}) {
            rows.push_back(row);
            rows.back().script =
                row.script.substr(0, at) + "flat; xor " + std::to_string(i) + " " + mask;
        }
    }
    return rows;
}

}  // namespace

Bytes bytesFrom(const std::string& text) {
    Bytes all;
    for (const std::string& part : split(text, '+')) {
        const Words words = split(part, '*');
        Bytes bytes;
        if (part.starts_with("p")) {
            bytes = dhPrime(2048);
            bytes.back() =
                static_cast<uint8_t>(bytes.back() + (part == "p" ? 0 : number(part.substr(1))));
        } else if (part != "-") {
            bytes = tv::test::bytesOfHex(words.at(0));
        }
        for (size_t n = words.size() > 1 ? number(words[1]) : 1; n > 0; --n) {
            all.insert(all.end(), bytes.begin(), bytes.end());
        }
    }
    return all;
}

std::vector<Step> stepsOf(const std::string& names) {
    std::vector<Step> steps;
    for (const std::string& name : split(names, '/')) {
        steps.push_back(stepNamed(name));
    }
    return steps;
}

Step stepNamed(const std::string& name) {
    const auto at = std::ranges::find(kSteps, name);
    if (at == std::end(kSteps)) throw std::runtime_error("unknown message: " + name);
    return static_cast<Step>(at - kSteps);
}

std::string nameOfStep(Step step) {
    return std::string(kSteps[static_cast<size_t>(step)]);
}

Ends endsOf(const std::string& words) {
    Ends ends;
    for (const std::string& word : wordsOf(words)) {
        set(ends, word);
    }
    return ends;
}

std::vector<Row> rowsOf(std::string table) {
    std::vector<Row> rows;
    for (size_t at; (at = table.find("\n ")) != table.npos;) {
        table.erase(at, 1);
    }
    for (const std::string& line : split(table, '\n')) {
        if (line.empty()) continue;
        const std::vector<std::string> all = expanded(line);
        for (size_t i = 0; i < all.size(); ++i) {
            const std::vector<std::string> cells = split(all[i] + "|||||", '|');
            Row row{cells[0], cells[1], cells[2], cells[3], cells[4]};
            std::ranges::replace(row.name, '.', '_');
            if (all.size() > 1) row.name += "_" + std::to_string(i + 1);
            rows.push_back(row);
        }
    }
    return rows;
}

std::string nameOf(const testing::TestParamInfo<Row>& info) {
    return info.param.name;
}

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.setup << " | " << row.script << " | " << row.verdict << " | " << row.words;
}

void expectVerdict(const Row& row) {
    for (const Row& one : unflipped(row)) {
        SCOPED_TRACE(one.setup + " | " + one.script);
        Ends ends = endsOf(one.setup);
        Step last = Step::ServerHello;
        const std::vector<Words> acts = readScript(one.script, ends.server, last);
        Talk talk(ends.server, ends.client);
        talk.environment.randomWorks = ends.randomWorks;
        talk.pump();
        ASSERT_TRUE(acts.empty() || talk.stands()) << talk.logText();
        talk.engine.input().clear();
        for (const Words& words : acts) {
            act(talk.server, words);
            talk.pump();
        }
        EXPECT_EQ(talk.verdict(), one.verdict) << talk.logText();
        EXPECT_EQ(talk.engine.failure() == Cause::TlsRandomFailed, !ends.randomWorks);
        const bool absent = one.words.starts_with("!");
        const bool found = talk.logText().find(one.words.substr(absent)) != std::string::npos;
        EXPECT_NE(found, absent) << talk.logText();
        // From the ServerHello of TLS 1.3 on alerts are protected (RFC 8446, 6).
        const bool mustHide = ends.server.version == 0x0304 && last > Step::ServerHello;
        EXPECT_TRUE(!mustHide || talk.server.clearAlerts == 0);
        // Behind our close_notify the same is answered by nothing.
        Talk closing(ends.server, ends.client);
        if (acts.empty() || !closing.pump().engine.isEstablished()) continue;
        closing.engine.sendCloseNotify();
        closing.pump();
        for (const Words& words : acts) {
            act(closing.server, words);
        }
        EXPECT_EQ(closing.pump().serverWords, "");
    }
}

}  // namespace tv::tls::test
