// One entry of the sent-mail log: the wait for other processes, the marks, the message as it goes
// over the line.
#include "mail/smtp/SentMailLog.h"

#include "mail/smtp/DotStuffer.h"
#include "platform/SysClock.h"
#include "platform/SysFile.h"

namespace tv::smtp {
namespace {

constexpr std::string_view kBegin = "--BEGIN SENT TOLVANE EMAIL--\n";
constexpr std::string_view kEnd = "\n--END SENT TOLVANE EMAIL--\n";
constexpr size_t kBlock = 65536;           // written at once
constexpr uint64_t kLongestWaitMs = 2000;  // for another process
constexpr uint32_t kLookMs = 50;           // how often it is looked

// Several processes may write to one file, and each entry is written in blocks. Who keeps it to
// himself for longer must not keep the mail from going out.
void waitForOthers(LogBase& log, plat::SysFile& file) {
    const uint64_t start = plat::sysClock().tickMs();
    while (!file.tryLock()) {
        if (plat::sysClock().tickMs() - start >= kLongestWaitMs) {
            log.logInfo("The sent-mail log is in use; the entry is written all the same.");
            return;
        }
        plat::sysClock().sleepMs(kLookMs);
    }
}

// A full disk must not stop the mail: what cannot be written is passed over.
class EntryFile final : public OutputStream {
public:
    explicit EntryFile(plat::SysFile& file) : file_(file) {}
    using OutputStream::write;
    bool write(std::span<const uint8_t> block) override {
        isComplete = isComplete && file_.write(block.data(), block.size());
        return true;
    }

    bool isComplete = true;

private:
    plat::SysFile& file_;
};

}  // namespace

bool appendToSentMailLog(LogBase& log, std::string_view path, const SmtpSend& send) {
    plat::SysFile file;
    if (!file.openAppend(path)) return true;
    waitForOthers(log, file);
    EntryFile entry(file);
    DataBlocks blocks(entry, kBlock);
    const bool rendered = blocks.writeAsItIs(kBegin) && send.mimeSource(log, blocks, send.utf8) &&
                          blocks.writeAsItIs(kEnd) && blocks.finish();
    if (!file.close() || !entry.isComplete) log.logInfo("Failed to write the sent-mail log.");
    return rendered;
}

}  // namespace tv::smtp
