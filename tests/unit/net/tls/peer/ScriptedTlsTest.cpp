// TLS against a server that misbehaves on purpose: for each change of each message the alert, or
// that it is legal. Signature, binder and Finished are made over the changed message, so that
// nothing but the one check in question can find it. ScriptedRow.h says how to read the rows.
#include "tests/unit/net/tls/peer/ScriptedRow.h"

namespace tv::tls::test {
namespace {

class ScriptedTls : public testing::TestWithParam<Row> {};

TEST_P(ScriptedTls, endsAsItsRowSays) {
    expectVerdict(GetParam());
}

// Places in the ServerHello: 2 random, 34 session ID, 67 suite, 69 compression, 70 extensions:
// renegotiation_info (72 type, 74 size, 76), extended_master_secret (77, 79).
const char* const kTls12Rows = R"(
legal | {12,12 group=23,rsa12,rsa12 suite=C030,12 noMaster,11,10,10 suite=C013 key=RSA-2048} |
    | legal
emptyRecords | {cbc12,11,10} emptyRecords | | legal
random | {12,dhe dhPrime=2048,plainRsa,13 retry group=24} noRandom | | internal error
oddCertificate | {12,13} oddCertificate | | legal
keyword | {12,13} noGcm | | illegal parameter
hello.noExtensions | 12 noMaster noRenegotiationInfo | Hello noBlock | legal
hello.version | 12 | Hello at {1 04,1 00,0 04} | protocol version
hello.suiteOfNoVersion | 12 | Hello at 1 02 | illegal parameter
hello.mark | {12,12 highest=0303 fallback} | Hello at 26 444f574e47524401 | illegal parameter
hello.mark11 | {11,11 highest=0303,12} | Hello at 26 444f574e47524400 | illegal parameter
hello.markUnknown | {12,12 highest=0303 fallback} | Hello at 26 444f574e47524402 | legal
hello.markTolerated | 12 highest=0303 | Hello at 26 444f574e47524401 | legal
hello.mark11Tolerated | 11 highest=0302 | Hello at 26 444f574e47524400 | legal
hello.sessionId33 | 12 | Hello insert 35 01; at 34 21 | decode error
hello.noSessionId | 12 | Hello erase 35 32; at 34 00 | legal
hello.harmless | 12 | Hello flip {2 34,35 67} | legal
hello.suite | 12 | Hello at 67 {1301,C0AC,0000} | illegal parameter
hello.compression | 12 | Hello flip 69 70 | illegal parameter
hello.sizes | 12 | Hello flip {70 72,79 81} | decode error
hello.types | 12 | Hello flip {72 74 80,77 79} | unsupported extension
hello.misplaced | 12 | Hello add {43 0303,51 001d000101,13 00020403,23 -} | illegal parameter
hello.notOffered | 12 | Hello add {0x1234 -,35 -,16 0003026832} | unsupported extension
hello.malformed | 12 | Hello {add 0 01,add 5 01,add 11 00,in 23 set 00} | decode error
hello.renegotiationInfo | 12 | Hello in 0xFF01 set {01,0000} | decode error
hello.renegotiationNotEmpty | 12 | Hello in 0xFF01 set 0107 | handshake failure
hello.deployed | 12 | Hello add {10 0004001d0017,11 020100,28 0040,5 -} | legal
hello.compressedPoints | 12 | Hello add 11 0101 | illegal parameter
hello.limit63 | 12 | Hello add 28 003f | illegal parameter
hello.long | 12 | Hello length 65537 | illegal parameter

certificate.none | 12 | Certificate set {000000,000003000000} | decode error
certificate.odd | 12 | Certificate set 0000050000023000 | bad certificate
certificate.sixtyFour | 12 | Certificate append 00000130*63; count24 0 | legal
certificate.sixtyFive | 12 | Certificate append 00000130*64; count24 0 | decode error
certificate.sizes | 12 | Certificate flip 0 6 | decode error
certificate.kind | {rsa12 suite=C02B,12 key=brainpoolP384r1} | | illegal parameter
certificate.otherKey | 12 certificate=P-384 | | decrypt error
certificate.long | 12 | Certificate length 131073 | illegal parameter

status | status | Hello add 5 - | legal
status.notAnnounced | status | | unexpected message
status.malformed | status | Hello add 5 -; Status {append 00,at 0 02} | decode error

exchange.curve | 12 | Params {flip 0 3,at 1 01} | illegal parameter
exchange.notOffered | 12 group={26,27} | | illegal parameter
exchange.key | 12 | Params set 03001d{20+00*32,1f+09*31,21+09*33} | illegal parameter
exchange.keySize | 12 | Params {set 03001d00,flip 3 4 80} | decode error
exchange.point | 12 group=23 | Params {xor -1 01,set 0300170100} | illegal parameter
exchange.otherKey | 12 | Params flip 4 36 01 | server ends
exchange.sizes | 12 | Exchange {append 00,resize 36,flip 38 40} | decode error
exchange.signature | {12,10,10 suite=C013 key=RSA-2048,dhe dhPrime=2048} | Exchange xor -1 01
    | decrypt error
exchange.signatureBytes | 12 | Exchange {flip 40 110,resize 40; at 38 0000} | decrypt error
exchange.schemes | rsa12 scheme={0804,0601,0201} | | legal
exchange.ecdsaSchemes | 12 scheme={0203,0503} | | legal
exchange.md5 | rsa12 scheme=0101 | | illegal parameter
exchange.scheme | 12 | Exchange at 36 {0301,0401} | illegal parameter
exchange.schemeBytes | 12 | Exchange flip 36 38 80 | illegal parameter
exchange.otherHash | 12 | Exchange at 36 0503 | decrypt error

dhe | dhe dhPrime={2048,768} | | legal | !Diffie-Hellman group has only 1024 bits
dhe.1024 | dhe dhPrime=1024 | | legal | Diffie-Hellman group has only 1024 bits
dhe.767 | dhe madeUpPrime=767:0B | | insufficient security
dhe.modulus | dhe madeUpPrime={8193:0B,1024:0A} | | illegal parameter
dhe.generator | dhe dhPrime=2048 | Params resize 258; append {000101,0100+p-1}+000105
    | illegal parameter
dhe.value | dhe dhPrime=2048 | Params resize 261; append {000100,000101,0100+p-1,0100+p}
    | illegal parameter
dhe.otherValue | dhe dhPrime=2048 | Params resize 261; append {000102,0100+p-2} | server ends
dhe.empty | dhe dhPrime=2048 | Params resize 258; append {0000000105,0001020000} | decode error

rsa.keyExchange | plainRsa flight=Hello/Certificate/Exchange/Done | | unexpected message
rsa.key | plainRsa rsaKey={2048:9B:03,8192:9B:010001} | | server ends
rsa.modulus | plainRsa rsaKey={8193:9B,2048:9A}:010001 | | illegal parameter
rsa.exponent | plainRsa rsaKey=2048:9B:{01,010000,0100000001} | | illegal parameter

request | {asks12,asks12 11} | | legal
request.names | asks12 | Request at 6 0003; append 000107 | legal
request.malformed | asks12 | Request {set 00000204030000,set 01400001040000,append 00}
    | decode error
request.sizes | asks12 | Request flip {0 1,2 4,6 8} | decode error
done.notEmpty | 12 | Done set 00 | decode error

ticket | {12 ticket,12} zeroTicket | Hello drop 35; add 35 - | legal
ticket.twice | 12 ticket zeroTicket | Ticket twice | unexpected message
ticket.malformed | 12 ticket zeroTicket | Ticket append 00 | decode error
ticket.notAnnounced | 12 ticket zeroTicket | Hello drop 35 | unexpected message

ccs.content | 12 | Ccs set {02,0101,-} | unexpected message
ccs.twice | 12 | Finished before 20 01 | unexpected message
ccs.missing | 12 | Ccs omit; Finished clear | unexpected message
ccs.of13 | 12 | Hello before 20 01 x{1,32} | legal
ccs.tooMany | 12 | Hello before 20 01 x33 | unexpected message
ccs.early | 12 | {Certificate,Exchange,Done} before 20 01 | unexpected message
ccs.inMessage | 12 | Ccs before 22 14 | unexpected message

finished | {12,10} | Finished flip 0 12 | decrypt error
finished.sizes | 12 | Finished {resize 11,append 00} | decode error
finished.leftover | 12 | Finished tail 00000000 | unexpected message

record.data | 12 | {Hello,Done,Finished} before 23 01 | unexpected message
record.unknown | 12 | Done before {24 01,21 -} | unexpected message
record.alert | 12 | Done before 21 {0228,0370,0100} | silence
record.inMessage | 12 | Done before 21 0170; before 22 0e00 | unexpected message
record.warning | {12,11,10} | Hello before 21 0170 | legal
record.idle | 12 | Done before 21 0170 x32 | legal
record.tooIdle | 12 | Done {before 21 0170 x33,before 22 - x33,requestsBefore x33}
    | unexpected message
)";

// Places in the ServerHello: as above, but key_share (72 type, 74 size, 76 group, 78 size, 80 key)
// and supported_versions (112, 114, 116).
const char* const kTls13Rows = R"(
legal | {13,13 suite=1302,13 group=23,13 padding=100 recordSize=16284,13 recordSize=1} | | legal
hello.harmless | 13 | Hello {reverse,at 26 444f574e47524401,flip 2 34} | legal
hello.version | 13 | Hello flip 0 2 | illegal parameter
hello.suite | 13 | Hello {at 67 C02B,at 67 1304,flip 67 69} | illegal parameter
hello.compression | 13 | Hello flip 69 70 | illegal parameter
hello.sessionId | 13 | Hello {erase 35 32; at 34 00,flip 35 67} | illegal parameter
hello.sessionIdSize | 13 | Hello {insert 35 01; at 34 21,flip 34 35} | decode error
hello.selects | 13 | Hello {in 43 set 0303,in 43 set 0305,flip 116 118,drop 43} | illegal parameter
hello.noShare | 13 | Hello drop 51 | missing extension
hello.types | 13 | Hello {noExtensions,flip 112 114,flip 114 116 80} | illegal parameter
hello.shareType | 13 | Hello flip 72 74 | unsupported extension
hello.sizes | 13 | Hello {flip 70 72,flip 74 75,flip 78 80} | decode error
hello.twice | 13 | Hello add {43 0304,51 001d0001} | illegal parameter
hello.notOffered | 13 | Hello add {0x1234 -,44 000101,41 0000} | unsupported extension
hello.misplaced | 13 | Hello add {0 -,10 0002001d,23 -,28 4001,0xFF01 00} | illegal parameter
hello.group | 13 | Hello {flat; at 77 18,flip 76 78} | illegal parameter
hello.share | 13 | Hello in 51 set 001d{0020+00*32,001f+09*31,0021+09*33} | illegal parameter
hello.malformed | 13 | Hello {in 51 set 001d0000,in 51 append 00,in 43 append 00} | decode error
hello.otherKey | 13 | Hello flip 80 112 01 | bad record mac
hello.point | 13 group=23 | Hello in 51 {xor -1 01,at 4 06,at 4 07,set 0017000100}
    | illegal parameter
hello.pointCompressed | 13 group=23 | Hello in 51 at 2 0021{02,03}; in 51 resize 37
    | illegal parameter
hello.leftover | 13 | Hello tail 08 | unexpected message

retry | {13 retry group=24,13 retry noRetryGroup,13 retry group=24} cookie=07*300 | | legal
retry.group | 13 retry group=24 | | legal
retry.longCookie | 13 retry noRetryGroup cookie=07*65300 | | legal
retry.tooLongCookie | 13 retry noRetryGroup cookie=07*65310 | | illegal parameter
retry.emptyCookie | 13 retry group=24 cookie=01 | Retry in 44 set 0000 | decode error
retry.nothingNew | 13 retry {noRetryGroup,group=29,group=26} | | illegal parameter
retry.groupUnknown | 13 retry group=24 | Retry in 51 set 2A2A | illegal parameter
retry.groupTrailing | 13 retry group=24 | Retry in 51 append 00 | decode error
retry.twice | 13 retry group=24 flight=Retry/Hello | | unexpected message
retry.suite | 13 retry group=24 | Retry at 67 {1303,C02B} | illegal parameter
retry.otherGroup | 13 retry group=24 | Hello in 51 set 00170041+04*65 | illegal parameter
retry.then12 | 13 retry group=24 | Hello noExtensions; at 67 C02B | illegal parameter
retry.head | 13 retry group=24 | Retry {xor 40 01,at 1 02,at 69 01} | illegal parameter
retry.version | 13 retry group=24 | Retry {in 43 set 0303,drop 43} | illegal parameter
retry.of12 | 13 retry group=24 | Retry drop 43; at 67 C02B; Hello noExtensions; at 67 C02B
    | illegal parameter
retry.extensions | 13 retry group=24 | Retry add {51 0018,28 4001} | illegal parameter
retry.unknownExtension | 13 retry group=24 | Retry add 0x1234 - | unsupported extension
retry.leftover | 13 retry group=24 | Retry tail 02 | unexpected message
retry.random | 13 retry group=24 | Retry flip 2 34 01 | decode error

extensions | 13 | Extensions {noExtensions,add 0 -,add 10 0002001d} | legal
extensions.limit | 13 | Extensions in 28 set {0040,FFFF} | legal
extensions.limit63 | 13 | Extensions in 28 set 003F | illegal parameter
extensions.malformed | 13 | Extensions {add 0 00,add 10 000100,in 28 set 01,in 28 append 00}
    | decode error
extensions.size | 13 | Extensions flip 0 2 | decode error
extensions.notOffered | 13 | Extensions add {0x1234 -,16 0003026832,42 -} | unsupported extension
extensions.misplaced | 13 | Extensions add {43 0304,51 001d000101,5 -,23 -,45 0101}
    | illegal parameter
extensions.twice | 13 | Extensions add 28 4001 | illegal parameter
extensions.long | 13 | Extensions length 65537 | illegal parameter

request | asks13 | Request {drop 0,add 0x1234 01} | legal
request.context | asks13 | Request set 0101 | illegal parameter
request.noAlgorithms | asks13 | Request drop 13 | missing extension
request.malformed | asks13 | Request {in 13 set 000104,in 13 set 0000,flip 0 3} | decode error
request.twice | asks13 | Request add 13 00020403 | illegal parameter

certificate.none | 13 | Certificate set {00000000,000000050000000000} | decode error
certificate.odd | 13 | Certificate set 0000000700000230000000 | bad certificate
certificate.sizes | 13 | Certificate flip 0 7 | decode error
certificate.context | 13 | Certificate at 0 01; insert 1 05 | illegal parameter
certificate.status | 13 | Certificate at -2 0009; append 000500050100000107; count24 1 | legal
certificate.badStatus | 13 | Certificate at -2 0008; append 0005000401000001; count24 1
    | decode error
certificate.statuses | 13 | Certificate at -2 0012; append 000500050100000107*2; count24 1
    | illegal parameter
certificate.unsolicited | 13 | Certificate at -2 0004; append 00120000; count24 1
    | unsupported extension
certificate.sixtyFour | 13 | Certificate append 000001300000*63; count24 1 | legal
certificate.sixtyFive | 13 | Certificate append 000001300000*64; count24 1 | decode error
certificate.otherKind | 13 certificate=P-384 | | illegal parameter
certificate.otherKey | 13 certificate=P-256#2 | | decrypt error
certificate.long | 13 | Certificate length 131073 | illegal parameter
certificate.longest | 13 | Certificate length 131072 | silence

verify.pss | 13 key=RSA-2048 scheme={0804,0805,0806} | | legal
verify.curves | 13 {key=P-384 scheme=0503,key=P-521 scheme=0603} | | legal
verify.rsa | 13 key=RSA-2048 scheme={0401,0201,0101} | | illegal parameter
verify.ecdsa | 13 scheme={0203,0503} | | illegal parameter
verify.otherKind | 13 key=RSA-2048 scheme=0804 | Verify at 0 0403 | illegal parameter
verify.scheme | 13 | Verify {at 0 0807,flip 0 2} | illegal parameter
verify.size | 13 | Verify flip 2 4 | decode error
verify.signature | 13 | Verify {flip 4 74,set 04030000} | decrypt error

finished | 13 | Finished flip 0 32 | decrypt error
finished.sizes | 13 | Finished {resize 31,append 00,set -} | decode error
finished.leftover | 13 | Finished tail 0400000f00000e100000000701010001070000 | unexpected message

ccs | 13 | {Hello,Extensions,Finished} clearBefore 20 01 | legal
ccs.retry | 13 retry group=24 | Hello before 20 01 x{1,2} | legal
ccs.idle | 13 | Extensions clearBefore 20 01 x32 | legal
ccs.tooIdle | 13 | Extensions clearBefore 20 01 x33 | unexpected message
ccs.inMessage | 13 | Extensions clearBefore 20 01; before 22 08 | unexpected message
ccs.content | 13 | Extensions clearBefore 20 {02,0101,-} | unexpected message
ccs.protected | 13 | Extensions before 20 01 | unexpected message

record.early | 13 | Hello before {23 01,24 01} | unexpected message
record.type | 13 | Finished before {23 01,23 -,24 01,0 -,22 -,21 -} | unexpected message
record.clear | 13 | Extensions {clear,clearBefore 21 0100} | unexpected message
record.alertSize | 13 | Finished before 21 {02,022800} | decode error
record.alert | 13 | Finished before 21 {0228,0170,0100} | silence
record.canceled | 13 | Finished before 21 015A | legal
record.canceledInMessage | 13 | Finished before 21 015A; before 22 1400 | unexpected message
record.alertInMessage | 13 | Finished before 21 0228; before 22 1400 | silence
)";

// What follows the handshake, and renegotiations.
const char* const kLaterRows = R"(
ticket | 13 | emit Ticket | legal
ticket.unknownExtension | 13 | Ticket add 0x1234 -; emit Ticket | legal
ticket.twoExtensions | 13 | Ticket add 42 00000000; add 42 00000000; emit Ticket | illegal parameter
ticket.malformed | 13 | Ticket {set 000001000000000700+0000,flat; append 00}; emit Ticket
    | decode error
update | 13 | Update {set 00,set 01}; emit Update x{1,5} | legal
update.value | 13 | Update set 02; emit Update | illegal parameter
update.size | 13 | Update set {-,0000}; emit Update | decode error
update.leftover | 13 | Update tail 0400000f00000e100000000701010001070000; emit Update
    | unexpected message
message | {13,12} | emit {Finished,Hello} | unexpected message
message.13 | 13 | emit {Request,HelloRequest,Ccs} | unexpected message
message.12 | 12 | emit Ticket | unexpected message
helloRequest | 12 | HelloRequest set 00; emit HelloRequest | decode error
ccs.protected | {13,12} | send 20 01 | unexpected message
data.inMessage | {13,12} | send 22 0400; send 23 01 | unexpected message
clear | {13,12} | sendClear 23 01*40 | bad record mac
clear.alert | 12 | sendClear 21 0100 | bad record mac
record.longest | 13 | send 23 00*16384 | legal
record.tooLong | {13,12} | now recordSize=16385; send 23 00*16385 | record overflow
record.longPadding | 13 | now padding=1; send 23 00*16384 | record overflow
record.announced | {13 | wire 1703034101,12 | wire 1703034801} | record overflow
record.version | 13 | wire 170200001e | protocol version
idle | {13,12} | send 23 - x32; send 23 01; send 23 - x32 | legal
idle.tooLong | {13,12} | send {23 -,21 015A} x33 | unexpected message
idle.handshake | 12 | send 22 - x33 | unexpected message
idle.messages | 13 | emit {Ticket,Update} x33 | unexpected message
idle.mixed | 13 | send 21 015A x16; send 23 - x17 | unexpected message

again | 12 again | {Hello,Ccs} before 23 01; emit HelloRequest | legal
again.three | 12 | emit HelloRequest; emit HelloRequest; emit HelloRequest | legal
again.four | 12 | emit HelloRequest; emit HelloRequest; emit HelloRequest; emit HelloRequest
    | handshake failure
again.verifyData | 12 again | Hello in 0xFF01 {xor 1 01,xor 24 01,set 00,
    at 0 0C; in 0xFF01 resize 13}; emit HelloRequest
    | handshake failure
again.noInfo | 12 again | Hello drop 0xFF01; emit HelloRequest | handshake failure
again.version | 12 again | Hello at 1 02; emit HelloRequest | protocol version
again.masterGone | 12 again | Hello drop 23; emit HelloRequest | handshake failure
again.masterNew | 12 again noMaster | Hello add 23 -; emit HelloRequest | handshake failure
again.certificate | 12 again | Certificate xor -1 01; emit HelloRequest | bad certificate
again.early | 12 again | Finished before 23 01; emit HelloRequest | unexpected message
again.closed | 12 again | Certificate before 21 0100; emit HelloRequest | silence
again.usage | rsa12 suite=C030 signing verifies | now rsa12; emit HelloRequest
    | legal | !lacks keyEncipherment
again.usageLacks | rsa12 suite=C030 signing verifies | now plainRsa; emit HelloRequest
    | unsupported certificate | its key usage lacks keyEncipherment, which TLS_R
again.usageUnverified | rsa12 suite=C030 signing | now plainRsa; emit HelloRequest
    | legal | its key usage lacks keyEncipherment, which TLS_R
)";

INSTANTIATE_TEST_SUITE_P(Tls12, ScriptedTls, testing::ValuesIn(rowsOf(kTls12Rows)), nameOf);
INSTANTIATE_TEST_SUITE_P(Tls13, ScriptedTls, testing::ValuesIn(rowsOf(kTls13Rows)), nameOf);
INSTANTIATE_TEST_SUITE_P(Later, ScriptedTls, testing::ValuesIn(rowsOf(kLaterRows)), nameOf);

}  // namespace
}  // namespace tv::tls::test
