// Cases of the scripted server as rows of text: name | setup | script | verdict | words of the log.
//
// A line that begins with a blank goes on with the row above; braces make a matrix, {a,b} two rows.
// The words of the setup are done in their order, "no" in front switches off; "resume" makes a
// whole connection of what stands before it, and the next one from its session. A statement of the
// script names a message and what happens to it before it is signed, hashed and sent ("Hello at 1
// 04; in 43 set 0303"), or is something that the server does once the connection stands ("send 23
// 00 x33"). Numbers are decimal or 0x.., bytes hexadecimal: "01*3+02" is 01010102, "-" none, and p,
// p-1, p-2 count from the prime of the Diffie-Hellman group.
#pragma once

#include "tests/unit/net/tls/peer/ScriptedTalk.h"

namespace tv::tls::test {

struct Row {
    std::string name, setup, script, verdict, words;
};
std::vector<Row> rowsOf(std::string table);
void PrintTo(const Row& row, std::ostream* out);
std::string nameOf(const testing::TestParamInfo<Row>& info);

struct Ends {
    ServerSetup server;
    TlsSettings client = namedSettings();
    bool randomWorks = true;  // behind the first hello
};
Ends endsOf(const std::string& words);
Bytes bytesFrom(const std::string& text);
Step stepNamed(const std::string& name);
std::vector<Step> stepsOf(const std::string& names);  // "Hello/Certificate/Done"
std::string nameOfStep(Step step);

// Replays the row: the verdict has to be its own, its words stand in the log (behind "!": do not).
void expectVerdict(const Row& row);

}  // namespace tv::tls::test
