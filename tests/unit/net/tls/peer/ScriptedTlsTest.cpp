// TLS against a server that misbehaves on purpose: for each change of each message the alert, or
// that it is legal. Signature, binder and Finished are made over the changed message, so that
// nothing but the one check in question can find it.
//
// Rows: name | setup | script | verdict | words of the log (behind "!": not there). A line that
// begins with a blank goes on with the row above; braces make a matrix: {a,b} two texts, {2..4}
// three. A statement of the script names a message and what happens to it before it is signed,
// hashed and sent ("Hello at 1 04; in 43 set 0303"), or is something that the server does once the
// connection stands ("send 23 00 x33"). Numbers are decimal or 0x.., bytes hexadecimal as bytesFrom
// reads them.
#include <set>

#include "tests/unit/net/tls/peer/ScriptedTalk.h"

namespace tv::tls::test {
namespace {

// How often the word at a place says, "x33" or nothing.
size_t countIn(const Words& words, size_t at) {
    return words.size() > at ? number(words[at].substr(1)) : 1;
}

// One statement about a message. "in 43" in front: about the body of that extension.
void change(const Words& all, Item& m, Items& items) {
    const bool within = all.at(0) == "in";
    const Words w(all.begin() + (within ? 2 : 0), all.end());
    const auto value = [&](size_t i) { return bytesFrom(w.at(i)); };
    const auto type = [&](const Words& from) { return number<uint16_t>(from.at(1)); };
    const auto insert = [&](bool clear) {
        Item item;
        item.record = number<uint8_t>(w.at(1)), item.raw = true;
        item.body = value(2), item.plain = clear;
        items.insert(items.begin(), countIn(w, 3), item);
    };
    // clang-format off
    const std::map<std::string, std::function<void()>> verbs = {
        {"tail", [&] { m.tail = value(1); }},
        {"length", [&] { m.length = number(w.at(1)); }},
        {"add", [&] { m.exts->push_back({type(w), value(2)}); }},
        {"drop", [&] { std::erase_if(*m.exts, [&](auto& e) { return e.type == type(w); }); }},
        {"noExtensions", [&] { m.exts->clear(); }},
        {"clear", [&] { m.plain = true; }},
        {"omit", [&] { items.clear(); }},
        {"twice", [&] { items.push_back(m); }},
        {"before", [&] { insert(false); }},
        {"clearBefore", [&] { insert(true); }},
    };
    if (const auto at = verbs.find(w.at(0)); at != verbs.end()) return at->second();
    Bytes& b = within ? std::ranges::find(*m.exts, type(all), &Extension::type)->body
                      : m.flat();
    const auto place = [&] {  // clamped: the length of a signature varies
        const long n = number<long>(w.at(1)), size = static_cast<long>(b.size());
        return b.begin() + (n < 0 ? size + n : std::min(n, size - 1));
    };
    const auto count24 = [&] {
        const Bytes rest = counted(3, View(place() + 3, b.end()));
        std::copy_n(rest.begin(), 3, place());
    };
    const std::map<std::string, std::function<void()>> edits = {
        {"at", [&] { std::ranges::copy(value(2), place()); }},
        {"xor", [&] { *place() ^= value(2).at(0); }},
        {"insert", [&] { b.insert(place(), value(2).at(0)); }},
        {"erase", [&] { b.erase(place(), place() + number<long>(w.at(2))); }},
        {"resize", [&] { b.resize(number(w.at(1))); }},
        {"set", [&] { b = value(1); }},
        {"append", [&] { b = joined({b, value(1)}); }},
        {"count24", count24},
    };
    // clang-format on
    edits.at(w[0])();
}

// What the server does once the connection stands.
void act(ScriptedTlsServer& server, const Words& w) {
    if (w[0] == "wire") return server.wire(bytesFrom(w.at(1)));
    if (w[0] == "now") {
        Ends changed{server.setup};
        for (size_t i = 1; i < w.size(); ++i) {
            set(changed, w[i]);
        }
        server.setup = changed.server;
        return;
    }
    for (size_t n = countIn(w, w[0] == "emit" ? 2 : 3); n > 0; --n) {
        if (w[0] == "emit") {
            server.emit(w.at(1));
        } else {
            server.send(number<uint8_t>(w.at(1)), bytesFrom(w.at(2)), w[0] == "sendClear");
        }
    }
}

// The texts of a matrix.
Words expanded(const std::string& text) {
    const size_t open = text.find('{');
    if (open == text.npos) return {text};
    size_t close = open + 1;
    Words choices(1), all;
    for (int depth = 1; depth > 0; ++close) {
        const char c = text.at(close);
        depth += (c == '{') - (c == '}');
        if (c == ',' && depth == 1) {
            choices.emplace_back();
        } else if (depth > 0) {
            choices.back() += c;
        }
    }
    for (const std::string& choice : choices) {
        const size_t dots = choice.find("..");
        const bool isRange =
            dots != choice.npos && choice.find_first_not_of(".0123456789") == choice.npos;
        const size_t last = isRange ? number(choice.substr(dots + 2)) : 0;
        for (size_t i = isRange ? number(choice.substr(0, dots)) : 0; i <= last; ++i) {
            const std::string one = isRange ? std::to_string(i) : choice;
            for (std::string& whole : expanded(text.substr(0, open) + one + text.substr(close))) {
                all.push_back(std::move(whole));
            }
        }
    }
    return all;
}

void expectVerdict(const std::string& row) {
    SCOPED_TRACE(row);
    const Words cells = split(row + "|||||", '|');
    const std::string &script = cells[2], &verdict = cells[3], &words = cells[4];
    Ends ends = endsOf(cells[1]);
    std::vector<Words> acts;
    std::string last = "Hello";  // the message of the last edit
    for (const std::string& statement : split(script, ';')) {
        Words w = wordsOf(statement);
        if (std::set<std::string>{"emit", "send", "sendClear", "wire", "now"}.contains(w.at(0))) {
            acts.push_back(w);
            continue;
        }
        if (kSteps.contains(w[0])) {
            last = w[0];
            w.erase(w.begin());
        }
        ends.server.edits.emplace(last, [w](Item& m, Items& all) { change(w, m, all); });
    }
    ScriptedTalk talk(ends);
    talk.pump();
    EXPECT_TRUE(acts.empty() || (talk.engine.isEstablished() && talk.dataFlows()));
    talk.engine.input().clear();
    for (const Words& w : acts) {
        act(talk.server, w);
        talk.pump();
    }
    EXPECT_EQ(talk.verdict(), verdict) << talk.logText();
    EXPECT_EQ(talk.engine.failure() == Cause::TlsRandomFailed, !ends.randomWorks);
    const bool absent = words.starts_with("!");
    const bool found = talk.logText().find(words.substr(absent)) != std::string::npos;
    EXPECT_NE(found, absent) << talk.logText();
    // From the ServerHello of TLS 1.3 on alerts are protected (RFC 8446, 6).
    const bool mayBeClear =
        ends.server.version < Version::Tls13 || last == "Hello" || last == "Retry";
    EXPECT_TRUE(mayBeClear || talk.server.clearAlerts == 0);
    // Behind our close_notify the same is answered by nothing.
    ScriptedTalk closing(ends);
    if (acts.empty() || !closing.pump().engine.isEstablished()) return;
    closing.engine.sendCloseNotify();
    closing.pump();
    for (const Words& w : acts) {
        act(closing.server, w);
    }
    EXPECT_EQ(closing.pump().serverWords, "");
}

class ScriptedTls : public testing::TestWithParam<std::string> {};

TEST_P(ScriptedTls, endsAsItsRowSays) {
    for (const std::string& row : expanded(GetParam())) {
        expectVerdict(row);
    }
}

Words rowsOf(std::string table) {
    for (size_t at; (at = table.find("\n ")) != table.npos;) {
        table.erase(at, 1);
    }
    Words rows = split(table, '\n');
    std::erase(rows, "");
    return rows;
}

std::string nameOf(const testing::TestParamInfo<std::string>& info) {
    std::string name = wordsOf(info.param)[0];
    std::ranges::replace(name, '.', '_');
    return name;
}

// Places in the ServerHello: 2 random, 34 session ID, 67 suite, 69 compression, 70 extensions:
// renegotiation_info (72 type, 74 size, 76), extended_master_secret (77, 79).
const char* const kTls12Rows = R"(
random | {12,dhe,plainRsa,13 retry group=24} noRandom | | internal error
oddCertificate | {12,13} oddCertificate | | legal
keyword | {12,13} noGcm | | illegal parameter
noTls | 12 | Hello before 50 32 | unexpected message
    | The peer does not speak TLS on this connection (bad record type).
noVersion | 12 version=0200 | | protocol version
    | The peer does not speak TLS on this connection (bad record version).
noHello | 12 flight=Certificate | | unexpected message
    | Received a handshake message that is not allowed at this point.
noHandshake | 12 | Hello before 20 02 | unexpected message
    | Sending fatal alert because we received a ChangeCipherSpec before more handshake messages..

hello.short | 12 | Hello resize {33 | decode error | (1),66 | decode error | (2),
    69 | decode error | (3),71 | decode error | ServerHello too short (4)}
hello.noExtensions | 12 noMaster noRenegotiationInfo | Hello resize 70 | legal
hello.mark | {12,12 highest=0303 fallback} | Hello at 26 444f574e47524401 | illegal parameter
hello.mark11 | {11,11 highest=0303,12} | Hello at 26 444f574e47524400 | illegal parameter
hello.markUnknown | {12,12 highest=0303 fallback} | Hello at 26 444f574e47524402 | legal
hello.markTolerated | {12 highest=0303 | Hello at 26 444f574e47524401,
    11 highest=0302 | Hello at 26 444f574e47524400} | legal
hello.harmless | 12 | Hello {erase 35 32; at 34 00,xor {2..33,35..66} {01,80},
    add {10 0004001d0017,11 020100,28 0040,5 -}} | legal
hello.version | 12 | Hello at {1 04,1 00,0 04} | protocol version
hello.illegal | 12 | Hello {at 1 02,at 67 {1301,C0AC,0000},xor 69 {01,80},length 65537,
    add {43 0303,51 001d000101,13 00020403,23 -,11 0101,28 003f}} | illegal parameter
hello.malformed | 12 | Hello {insert 35 01; at 34 21,xor {70..71,79..80} {01,80},
    add {0 01,5 01,11 00},in 23 set 00,in 0xFF01 set {01,0000}} | decode error
hello.notOffered | 12 | Hello {xor {72..73} 80,xor {77..78} {01,80},
    add {0x1234 -,35 -,16 0003026832}} | unsupported extension
hello.renegotiationNotEmpty | 12 | Hello in 0xFF01 set 0107 | handshake failure

certificate.malformed | 12 | Certificate {set 000000,set 000003000000,xor {0..5} {01,80},
    append 00000130*64; count24 0} | decode error
certificate.sixtyFour | 12 | Certificate append 00000130*63; count24 0 | legal
certificate.odd | 12 | Certificate set 0000050000023000 | bad certificate
certificate.kind | {rsa12 suite=C02B,12 key=brainpoolP384r1} | | illegal parameter
certificate.otherKey | 12 certificate=P-384 | | decrypt error
certificate.long | {12,13} | Certificate length 131073 | illegal parameter

status | status | Hello add 5 - | legal
status.notAnnounced | status | | unexpected message
status.malformed | status | Hello add 5 -; Status {append 00,at 0 02} | decode error

exchange.notOffered | 12 group={26,27} | | illegal parameter
exchange.illegal | 12 | Params {xor {0..2} {01,80},at 1 01,set 03001d{20+00*32,1f+09*31,21+09*33}}
    | illegal parameter
exchange.point | 12 group=23 | Params {xor -1 01,set 0300170100} | illegal parameter
exchange.otherKey | 12 | Params xor {4..35} 01 | server ends
exchange.malformed | 12 | {Params {set 03001d00,xor 3 80},Exchange xor {38..39} {01,80}}
    | decode error
exchange.signature | {12,10,10 suite=C013 key=RSA-2048,dhe} | Exchange xor -1 01 | decrypt error
exchange.signatureBytes | 12 | Exchange {xor {40..109} {01,80},resize 40; at 38 0000,at 36 0503}
    | decrypt error
exchange.schemes | {rsa12 scheme={0804,0601,0201},12 scheme={0203,0503}} | | legal
exchange.md5 | rsa12 scheme=0101 | | illegal parameter
exchange.scheme | 12 | Exchange {at 36 {0301,0401},xor {36..37} 80} | illegal parameter

dhe | dhe prime=80+C5*{254,94}+0B | | server ends | !Diffie-Hellman group has only 1024 bits
dhe.1024 | dhe prime=80+C5*126+0B | | server ends | Diffie-Hellman group has only 1024 bits
dhe.767 | dhe prime=40+C5*94+0B | | insufficient security
dhe.illegal | dhe {prime={01+C5*1023+0B,80+C5*126+0A} | ,| Params resize 261; append 000101}
    | illegal parameter
dhe.empty | dhe | Params resize 258; append {0000000105,0001020000} | decode error

rsa.keyExchange | plainRsa flight=Hello/Certificate/Exchange/Done | | unexpected message
rsa.weakKey | plainRsa
    oddCertificate=3059300d06092a864886f70d01010105000348003045+0240+55*64+020101
    | | illegal parameter

request | {asks12 11 | ,asks12 | Request at 6 0003; append 000107} | legal
request.malformed | asks12 | Request {set 00000204030000,set 01400001040000,
    xor {0,2..3,6..7} {01,80}} | decode error

ticket | {12 ticket,12} zeroTicket | Hello drop 35; add 35 - | legal
ticket.malformed | 12 ticket zeroTicket | Ticket append 00 | decode error
ticket.refused | 12 ticket zeroTicket | {Ticket twice,Hello drop 35} | unexpected message

ccs.of13 | 12 | Hello before 20 01 x{1,32} | legal
ccs.refused | 12 | {Ccs set {02,0101,-},Finished before 20 01,Ccs omit; Finished clear,
    Hello before 20 01 x33,{Certificate,Exchange,Done} before 20 01,Ccs before 22 14}
    | unexpected message
finished | {12,10} | Finished xor {0..11} {01,80} | decrypt error
finished.leftover | 12 | Finished tail 00000000 | unexpected message

record.refused | 12 | {{Hello,Done,Finished} before 23 01,Done before {24 01,21 -},
    Done before 21 0170; before 22 0e00} | unexpected message
record.idle | 12 | Done before 21 0170 x32 | legal
record.tooIdle | 12 | Done before {21 0170,22 -,22 00000000} x33 | unexpected message
alert | 12 | Done before 21 {0228,0370} | silence
    | {TlsAlert:,Aborting handshake because of fatal alert.,level: fatal,
    Closing connection in response to fatal SSL/TLS alert.}
alert.warning | {12,11,10} | Hello before 21 0170 | legal | level: warning
alert.names | 12 | Done before 21 {0100 | silence | close notify,
    0215 | silence | decryption failed,021e | silence | decompression failure,
    022c | silence | certificate revoked,022d | silence | certificate expired,
    022e | silence | certificate unknown,0230 | silence | unknown certificate authority,
    0231 | silence | access denied,023c | silence | export restriction,
    025a | silence | user canceled,0264 | silence | no renegotiation,
    0270 | silence | SNI unrecognized name}
)";

// Places in the ServerHello: as above, but key_share (72 type, 74 size, 76 group, 78 size, 80 key)
// and supported_versions (112, 114, 116).
const char* const kTls13Rows = R"(
legal | {13 padding=100 recordSize=16284,13 recordSize=1} | | legal
hello.harmless | 13 | Hello {at 26 444f574e47524401,xor {2..33} {01,80}} | legal
hello.illegal | 13 | Hello {xor {0..1,35..69,76..77,112..113,116..117} {01,80},xor {114..115} 80,
    at 67 {C02B,1304},erase 35 32; at 34 00,in 43 set {0303,0305},drop 43,noExtensions,at 77 18,
    add {43 0304,51 001d0001,0 -,10 0002001d,23 -,28 4001,0xFF01 00},
    in 51 set 001d{0020+00*32,001f+09*31,0021+09*33}} | illegal parameter
hello.malformed | 13 | Hello {insert 35 01; at 34 21,xor {34,70..71,74,78..79} {01,80},
    in 51 {set 001d0000,append 00},in 43 append 00} | decode error
hello.noShare | 13 | Hello drop 51 | missing extension
hello.notOffered | 13 | Hello {add {0x1234 -,44 000101,41 0000},xor {72..73} {01,80}}
    | unsupported extension
hello.otherKey | 13 | Hello xor {80..111} 01 | bad record mac
hello.point | 13 group=23 | Hello in 51 {xor -1 01,at 4 06,at 4 07,set 0017000100,
    at 2 0021{02,03}; in 51 resize 37} | illegal parameter
hello.leftover | 13 | Hello tail 08 | unexpected message

retry.longCookie | 13 retry noRetryGroup cookie=07*65300 | | legal
retry.tooLongCookie | 13 retry noRetryGroup cookie=07*65310 | | illegal parameter
retry.emptyCookie | 13 retry group=24 cookie=01 | Retry in 44 set 0000 | decode error
retry.nothingNew | 13 retry {noRetryGroup,group=29,group=26} | | illegal parameter
retry.illegal | 13 retry group=24 | Retry {in 51 set 2A2A,at 67 {1303,C02B},xor 40 01,at 1 02,
    at 69 01,in 43 set 0303,drop 43,drop 43; at 67 C02B,add {51 0018,28 4001}} | illegal parameter
retry.malformed | 13 retry group=24 | Retry {in 51 append 00,xor {2..33} 01} | decode error
retry.notOffered | 13 retry group=24 | Retry add 0x1234 - | unsupported extension
retry.refused | 13 retry group=24 {flight=Retry/Hello | ,| Retry tail 02} | unexpected message
retry.otherwise | 13 retry group=24 | Hello {in 51 set 00170041+04*65,noExtensions; at 67 C02B}
    | illegal parameter

extensions | 13 | Extensions {noExtensions,add 0 -,add 10 0002001d,in 28 set {0040,FFFF}} | legal
extensions.malformed | 13 | Extensions {add 0 00,add 10 000100,in 28 set 01,in 28 append 00,
    xor {0..1} {01,80}} | decode error
extensions.notOffered | 13 | Extensions add {0x1234 -,16 0003026832,42 -} | unsupported extension
extensions.illegal | 13 | Extensions {in 28 set 003F,length 65537,
    add {43 0304,51 001d000101,5 -,23 -,45 0101,28 4001}} | illegal parameter

request | asks13 | Request add 0x1234 01 | legal
request.illegal | asks13 | Request {insert 0 01; at 1 01,add 13 00020403} | illegal parameter
request.noAlgorithms | asks13 | Request drop 13 | missing extension
request.malformed | asks13 | Request {in 13 set 000104,in 13 set 0000,xor {0..2} {01,80}}
    | decode error

certificate.malformed | 13 | Certificate {set 00000000,set 000000050000000000,
    xor {0..6} {01,80},at -2 0008; append 0005000401000001; count24 1,
    append 000001300000*64; count24 1} | decode error
certificate.odd | 13 | Certificate set 0000000700000230000000 | bad certificate
certificate.legal | 13 | Certificate {append 000001300000*63; count24 1,
    at -2 0009; append 000500050100000107; count24 1} | legal
certificate.illegal | 13 | Certificate {at 0 01; insert 1 05,
    at -2 0012; append 000500050100000107*2; count24 1} | illegal parameter
certificate.unsolicited | 13 | Certificate at -2 0004; append 00120000; count24 1
    | unsupported extension
certificate.otherKind | 13 certificate=P-384 | | illegal parameter
certificate.otherKey | 13 certificate=P-256#2 | | decrypt error
certificate.longest | 13 | Certificate length 131072 | silence

verify | 13 {key=RSA-2048 scheme={0804,0805,0806},key=P-384 scheme=0503,key=P-521 scheme=0603}
    | | legal
verify.scheme | 13 {scheme={0203,0503} | ,key=RSA-2048 scheme={0401,0201,0101} | ,
    key=RSA-2048 scheme=0804 | Verify at 0 0403,| Verify {at 0 0807,xor {0..1} {01,80}}}
    | illegal parameter
verify.size | 13 | Verify xor {2..3} {01,80} | decode error
verify.signature | 13 | Verify {xor {4..73} {01,80},set 04030000} | decrypt error

finished | 13 | Finished xor {0..31} {01,80} | decrypt error
finished.leftover | 13 | Finished tail 0400000f00000e100000000701010001070000 | unexpected message

ccs | 13 | {{Hello,Extensions,Finished} clearBefore 20 01,Extensions clearBefore 20 01 x32} | legal
ccs.retry | 13 retry group=24 | Hello before 20 01 x{1,2} | legal
ccs.refused | 13 | Extensions {before 20 01,
    clearBefore 20 {01 x33,01; before 22 08,02,0101,-}} | unexpected message

record.refused | 13 | {Hello before {23 01,24 01},Extensions {clear,clearBefore 21 0100},
    Finished before {23 01,23 -,24 01,0 -,22 -,21 -,21 015A; before 22 1400}} | unexpected message
record.alertSize | 13 | Finished before 21 {02,022800} | decode error
record.alert | 13 | Finished before 21 {0228,0170,0100,0228; before 22 1400} | silence
record.canceled | 13 | Finished before 21 015A | legal
)";

// What follows the handshake, and renegotiations.
const char* const kLaterRows = R"(
ticket | 13 | {Ticket add 0x1234 -;,} emit Ticket | legal
ticket.twice | 13 | Ticket add 42 00000000; add 42 00000000; emit Ticket | illegal parameter
ticket.malformed | 13 | Ticket {set 000001000000000700+0000*2,append 00}; emit Ticket
    | decode error
update | 13 | Update {set 00,set 01}; emit Update x{1,5} | legal
update.value | 13 | Update set 02; emit Update | illegal parameter
update.size | 13 | Update set {-,0000}; emit Update | decode error
update.leftover | 13 | Update tail 0400000f00000e100000000701010001070000; emit Update
    | unexpected message
message | {{13,12} | emit {Finished,Hello},13 | emit {Request,HelloRequest,Ccs},
    12 | emit Ticket,{13,12} | send {20 01,22 0400; send 23 01}} | unexpected message
helloRequest | 12 | HelloRequest set 00; emit HelloRequest | decode error
clear | {{13,12} | sendClear 23 01*40,12 | sendClear 21 0100} | bad record mac
record.longest | 13 | send 23 00*16384 | legal
record.tooLong | {13,12} | now recordSize=16385; send 23 00*16385 | record overflow
    | A received record is too long.
record.announced | {13 | now padding=1; send 23 00*16384,13 | wire 1703034101,12 | wire 1703034801}
    | record overflow
record.version | 13 | wire 170200001e | protocol version
idle | {13,12} | send 23 - x32; send 23 01; send 23 - x32 | legal
idle.tooLong | {{13,12} | send {23 -,21 015A} x33,12 | send 22 - x33,13 | emit {Ticket,Update} x33,
    13 | send 21 015A x16; send 23 - x17} | unexpected message

again | 12 again | {Hello,Ccs} before 23 01; emit HelloRequest | legal
again.three | 12 | emit HelloRequest; emit HelloRequest; emit HelloRequest | legal
again.four | 12 | emit HelloRequest; emit HelloRequest; emit HelloRequest; emit HelloRequest
    | handshake failure
again.refused | 12 again {| Hello {drop 0xFF01,drop 23,
    in 0xFF01 {xor 1 01,xor 24 01,set 00,at 0 0C; in 0xFF01 resize 13}},noMaster | Hello add 23 -};
    emit HelloRequest | handshake failure
again.version | 12 again | Hello at 1 02; emit HelloRequest | protocol version
again.certificate | 12 again | Certificate xor -1 01; emit HelloRequest | bad certificate
again.early | 12 again | Finished before 23 01; emit HelloRequest | unexpected message
again.closed | 12 again | Certificate before 21 0100; emit HelloRequest | silence
again.usage | rsa12 suite=C030 signing verifies | now rsa12; emit HelloRequest
    | legal | !lacks keyEncipherment
again.usageLacks | rsa12 suite=C030 signing {verifies | now plainRsa; emit HelloRequest
    | unsupported certificate,| now plainRsa; emit HelloRequest | server ends}
    | its key usage lacks keyEncipherment, which TLS_R
)";

// When sessions are offered, and what comes of it.
const char* const kSessionRows = R"(
ticket | 13 ticket resume {,noShare,retry group=24,retry noRetryGroup cookie=09,sessionSuite=1303}
    | | resumed
ticket.forgotten | 13 ticket resume {forgotten,12 forgotten noTicket} | | legal
ticket.illegal | 13 ticket resume {suite=1302 | ,| Hello in 41 set 0001,
    retry group=24 | Retry add 41 0000,| Extensions add 41 0000} | illegal parameter
ticket.dropped | 13 ticket resume suite=1302 retry group=24 | Hello add 41 0000
    | unsupported extension
ticket.indexSize | 13 ticket resume | Hello in 41 set {00,000000} | decode error
ticket.unsaid | 13 ticket resume | Hello drop 41 | bad record mac
ticket.early | 13 ticket resume flight=Hello/Extensions/{Certificate,Request} | | unexpected message
ticket.compatibility | 13 ticket {resume,} 12 forgotten noTicket echo | | illegal parameter

id | {cbc12,cbc12 noMaster,12,11,10} resume | | resumed
id.forgotten | cbc12 resume forgotten | | legal
id.master | cbc12 {resume | Hello drop 23,noMaster resume master | } | handshake failure
id.suite | cbc12 resume | Hello {at 68 2B,at 1 02} | illegal parameter
id.refused | cbc12 resume {flight=Hello/{Finished,Certificate} | ,| Finished tail 00000000}
    | unexpected message
id.finished | cbc12 resume | Finished xor 11 01 | decrypt error
id.again | cbc12 resume | emit HelloRequest | legal
id.againOtherwise | cbc12 resume again | Certificate xor -1 01; emit HelloRequest | bad certificate

offer.good | {13 ticket resume {,later=3599999,lifetime=16777216 later=604799999,verify verified=1},
    12 resume {,later=86399999,verify verified=1}} | | resumed | Session contains valid info...
offer.old | {13 ticket resume {later=3600000,lifetime=16777216 later=604800000},
    12 resume later=86400000} | | legal | Session ticket is too old.
offer.future | {13 ticket,12} resume later=-1
    | | legal | Session ticket arrived after the current time.
offer.verified | {13 ticket,12} resume verify verified=0
    | | legal | The certificate of the session has to be verified again.
offer.not | {{13 ticket,12} resume noReuse,12 resume 13 lowest=0304 forgotten,
    13 ticket resume 12 noTicket forgotten {highest=0303,disable13}} | | legal | !Session
offer.parts | {13 ticket resume {lostSecret | | legal | Missing the TLS 1.3 resumption secret...,
    lostId | | legal | Missing the TLS 1.3 session ticket...},
    12 resume {lostSecret | | legal | masterSecret,lostId | | legal | sessionId} is empty.}
)";

INSTANTIATE_TEST_SUITE_P(Tls12, ScriptedTls, testing::ValuesIn(rowsOf(kTls12Rows)), nameOf);
INSTANTIATE_TEST_SUITE_P(Tls13, ScriptedTls, testing::ValuesIn(rowsOf(kTls13Rows)), nameOf);
INSTANTIATE_TEST_SUITE_P(Later, ScriptedTls, testing::ValuesIn(rowsOf(kLaterRows)), nameOf);
INSTANTIATE_TEST_SUITE_P(Sessions, ScriptedTls, testing::ValuesIn(rowsOf(kSessionRows)), nameOf);

}  // namespace
}  // namespace tv::tls::test
