#include "mail/SentMailLog.h"

#include "mail/ChunkStream.h"
#include "platform/SysFile.h"

namespace tv::smtp {
namespace {

constexpr std::string_view kBegin = "--BEGIN SENT TOLVANE EMAIL--\n";
constexpr std::string_view kEnd = "\n--END SENT TOLVANE EMAIL--\n";
constexpr size_t kBlock = 65536;

}  // namespace

bool appendToSentMailLog(std::string_view path, const SmtpSend& send, LogBase& log) {
    plat::SysFile file;
    if (!file.openAppend(path)) return true;
    bool written = true;  // a full disk must not stop the mail
    ChunkStream blocks(kBlock, [&](std::span<const uint8_t> block) {
        written = written && file.write(block.data(), block.size());
        return true;
    });
    const bool rendered = blocks.write(kBegin) && send.renderStuffed(blocks, log) &&
                          blocks.write(kEnd) && blocks.finish();
    if (!file.close() || !written) log.logInfo("Failed to write the sent-mail log.");
    return rendered;
}

}  // namespace tv::smtp
