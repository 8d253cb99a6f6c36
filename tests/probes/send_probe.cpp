// Sends through the mail manager with every property at hand: time-outs, chunk sizes, heartbeat.
//
//     send_probe [NAME=VALUE...]
//
// The arguments hold for every send. Each line of stdin is one send, with more of them, parted by
// tabs; it is answered with one JSON object. NAME is a property of the mail manager or one of
// these:
//
//     trial=1      the trial connection goes first, as it does in the send export
//     keep=1       with the mail manager, and so the connection, of the line before
//     id=TEXT      becomes the subject
//     to=ADDRESS   the only recipient
//     bytes=N      size of the body
//     abortAt=N    the N-th question whether to go on is answered with no
//     log=1        the answer has the log, the transcript is always in it
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <string>

#include "mail/ClsMailMan.h"
#include "mime/ClsEmail.h"
#include "net/stream/ProgressMonitor.h"
#include "platform/SysClock.h"
#include "tests/fixtures/hosts/process_use.h"
#include "tests/probes/JsonText.h"

namespace tv::test {
namespace {

using Words = std::map<std::string, std::string>;

class Watcher final : public ProgressMonitor {
public:
    bool abortRequested() override { return ++asked >= abortAt; }
    void progress(uint64_t d, uint64_t t) override {
        done = d;
        total = t;
    }
    void textEvent(std::string_view name, std::string_view) override {
        attempts += name == "SocketConnect";
    }

    long abortAt = 0x7FFFFFFF;
    long asked = 0;
    int attempts = 0;
    uint64_t done = 0;
    uint64_t total = 0;
};

void addWord(const std::string& word, Words& words) {
    const size_t sign = word.find('=');
    if (sign == std::string::npos) {
        std::cerr << "send_probe: no NAME=VALUE: " << word << "\n";
        std::exit(2);
    }
    words[word.substr(0, sign)] = word.substr(sign + 1);
}

std::string take(Words& words, const char* name, const char* otherwise = "") {
    const auto entry = words.find(name);
    if (entry == words.end()) return otherwise;
    const std::string value = entry->second;
    words.erase(entry);
    return value;
}

std::string bodyOf(size_t size) {
    std::string body;
    while (body.size() < size)
        body += "<p>A line of the body, with a full stop.</p>\n";
    body.resize(size);
    return body;
}

class Prober {
public:
    void run(Words words) {
        const bool keep = take(words, "keep") == "1";
        const bool trial = take(words, "trial") == "1";
        const bool withLog = take(words, "log") == "1";
        Watcher watcher;
        watcher.abortAt = std::stol(take(words, "abortAt", "2147483647"));
        if (!keep || !mailMan_) mailMan_ = std::make_unique<ClsMailMan>();
        ClsEmail email;
        email.put_FromAddress(XString("anna@example.test"));
        email.put_Subject(XString(take(words, "id", "probe")));
        email.SetHtmlBody(XString(bodyOf(std::stoul(take(words, "bytes", "100")))));
        email.AddTo(XString(), XString(take(words, "to", "bela@example.test")));
        for (const auto& [name, value] : words) {
            if (mailMan_->setProperty(name, XString(value))) continue;
            std::cerr << "send_probe: no such property: " << name << "=" << value << "\n";
            std::exit(2);
        }
        const uint64_t start = plat::sysClock().tickMs();
        const bool tried = !trial || mailMan_->VerifySmtpConnection(&watcher);
        const bool sent = tried && mailMan_->SendEmail(email, &watcher);
        const uint64_t elapsed = plat::sysClock().tickMs() - start;
        std::cout << "{\"sent\": " << (sent ? "true" : "false")
                  << ", \"status\": " << quoted(tried ? mailMan_->lastSendStatus() : "TrialFailed")
                  << ", \"ms\": " << elapsed << ", \"attempts\": " << watcher.attempts
                  << ", \"asked\": " << watcher.asked << ", \"done\": " << watcher.done
                  << ", \"total\": " << watcher.total
                  << ", \"transcript\": " << quoted(mailMan_->SmtpSessionLog().utf8());
        if (withLog) std::cout << ", \"log\": " << quoted(mailMan_->lastErrorText().utf8());
        const uint64_t end = plat::sysClock().tickMs();
        if (!keep) mailMan_.reset();
        std::cout << ", \"closeMs\": " << plat::sysClock().tickMs() - end
                  << ", \"handles\": " << open_handles() << ", \"memory\": " << memory_in_use()
                  << "}" << std::endl;
    }

private:
    std::unique_ptr<ClsMailMan> mailMan_;
};

}  // namespace
}  // namespace tv::test

int main(int argc, char** argv) {
    tv::test::Words common;
    for (int i = 1; i < argc; ++i)
        tv::test::addWord(argv[i], common);
    tv::test::Prober prober;
    for (std::string line; std::getline(std::cin, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        tv::test::Words words = common;
        for (size_t at = 0; at < line.size();) {
            const size_t end = std::min(line.find('\t', at), line.size());
            tv::test::addWord(line.substr(at, end - at), words);
            at = end + 1;
        }
        prober.run(std::move(words));
    }
    return 0;
}
