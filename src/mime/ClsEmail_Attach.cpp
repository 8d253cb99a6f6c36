// Files in a message: attachments and inline related items.
#include <algorithm>

#include "base/Ascii.h"
#include "base/CodePage.h"
#include "base/Random.h"
#include "log/LogContextExitor.h"
#include "mime/CharsetNames.h"
#include "mime/ClsEmail.h"
#include "mime/Identifiers.h"
#include "mime/MediaTypes.h"
#include "platform/SysFile.h"
#include "platform/SysHost.h"

namespace tv {
namespace {

// Appends what the file holds from here on; false for a read error or where memory ends. Room for
// all that is expected is already reserved, so the block is never moved or grown on the usual way.
bool readToEnd(plat::SysFile& file, size_t expected, DataBuffer& block) {
    // A size that is not true costs no more than a step.
    constexpr size_t kStep = size_t{1024} * 1024;
    for (;;) {
        const size_t have = block.size();
        uint8_t beyond[512];  // the file may have grown meanwhile
        size_t got = 0;
        if (have < expected) {
            const size_t step = std::min(kStep, expected - have);
            if (!block.resize(have + step) || !file.read(block.data() + have, step, got)) {
                return false;
            }
            block.resize(have + got);
        } else if (!file.read(beyond, sizeof beyond, got) || !block.append({beyond, got})) {
            return false;
        }
        if (got == 0) return true;
    }
}

// The whole file in one block of its size; nullptr with the reason logged.
SharedBody loadFile(LogBase& log, std::string_view path, std::string_view failure) {
    plat::SysFile file;
    if (!file.openRead(path)) {
        log.logError(failure);
        return nullptr;
    }
    uint64_t size = 0;
    if (!file.size(size)) size = 0;
    const auto block = std::make_shared<DataBuffer>();
    if (size > SIZE_MAX / 2 || !block->reserve(static_cast<size_t>(size))) {
        log.logError("Not enough memory to load the file.");
        log.logDataLong("fileSize", static_cast<int64_t>(size));
        return nullptr;
    }
    if (!readToEnd(file, static_cast<size_t>(size), *block)) {
        log.logError(failure);
        return nullptr;
    }
    return block;
}

// The path by which there is a file: as it was given, or with slashes alone where a host glued it
// together with both.
std::string pathOfFile(std::string_view given) {
    const bool mixed =
        given.find('/') != std::string_view::npos && given.find('\\') != std::string_view::npos;
    if (!mixed || plat::isRegularFile(given)) return std::string(given);
    return replaceAll(given, "\\", "/");
}

// A path may be written with either separator or, by hosts that glue paths together, with both.
std::string_view fileNameOf(std::string_view path) {
    const size_t slash = path.rfind('/');
    const size_t backslash = path.rfind('\\');
    const size_t last = slash == std::string_view::npos       ? backslash
                        : backslash == std::string_view::npos ? slash
                                                              : std::max(slash, backslash);
    return last == std::string_view::npos ? path : path.substr(last + 1);
}

bool isTextType(std::string_view type) {
    return startsWithIgnoreCase(type, "text");
}

// What a text file declares. Its bytes are never converted.
uint32_t charsetOfFile(std::string_view bytes) {
    if (isAscii(bytes)) return kCodePageAscii;
    if (isValidUtf8(bytes)) return kCodePageUtf8;
    const uint32_t usual = plat::sysHost().textFileCodePage();
    return usual == 0 || usual == kCodePageUtf8 ? kCodePageUnknown8Bit : usual;
}

// The mark of UTF-16 or UTF-32 in either byte order. No text part can hold that: its line ends are
// no CR LF (RFC 2046 section 4.1.1).
bool isWideText(std::string_view bytes) {
    return bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF") ||
           bytes.starts_with(std::string_view("\0\0\xFE\xFF", 4));
}

std::string_view typeOfFile(std::string_view path, std::string_view bytes) {
    const std::string_view type = mediaTypeOfPath(path);
    // A message may stand neither in base64 nor in quoted-printable (RFC 2046 section 5.2.1).
    const bool opaque = type.starts_with("message/") || (isTextType(type) && isWideText(bytes));
    return opaque ? "application/octet-stream" : type;
}

std::unique_ptr<Email2> partOf(Email2& root, std::string_view path, SharedBody bytes) {
    const std::string_view type = typeOfFile(path, bytes->text());
    const bool isText = isTextType(type);
    const uint32_t charset = isText ? charsetOfFile(bytes->text()) : 0;
    std::unique_ptr<Email2> part = root.createSubPart();
    part->setFileContent(type, charset, fileNameOf(path), std::move(bytes));
    part->setTransferEncoding(isText ? "quoted-printable" : "base64");
    return part;
}

bool newContentId(std::string& id) {
    uint8_t random[16];
    if (!randomBytes(random)) return false;
    id = contentIdOf(random);
    return true;
}

}  // namespace

bool ClsEmail::AddFileAttachment(const XString& path, XString& contentType) {
    Operation operation(*this, "AddFileAttachment");
    LogBase& log = operation.log();
    Email2* message = root(log);
    const bool added = message && addFileAttachment(log, *message, path.utf8(), contentType);
    if (!added) log.logError("Failed to add file attachment");
    return operation.finish(added);
}

bool ClsEmail::addFileAttachment(LogBase& log, Email2& root, std::string_view given,
                                 XString& contentType) {
    log.logData("path", given);
    const std::string path = pathOfFile(given);
    SharedBody bytes;
    if (!plat::isRegularFile(path)) {
        log.logError("file does not exist");
    } else {
        const LogContextExitor context(log, "loadIntoAttachmentBody");
        bytes = loadFile(log, path, "Failed to load file.");
    }
    if (!bytes) {
        log.logError("Failed to create attachment from file.");
        return false;
    }
    std::unique_ptr<Email2> part = partOf(root, path, std::move(bytes));
    part->setDisposition("attachment", fileNameOf(path));
    contentType.setUtf8(part->contentType().mediaType());
    root.addAttachment(log, std::move(part));
    log.logData("contentType", contentType.utf8());
    return true;
}

bool ClsEmail::AddRelatedFile(const XString& path, XString& contentId) {
    Operation operation(*this, "AddRelatedFile");
    LogBase& log = operation.log();
    Email2* message = root(log);
    const bool added = message && addRelatedFile(log, *message, path.utf8(), contentId);
    if (!added) log.logError("Failed to add related file");
    return operation.finish(added);
}

bool ClsEmail::addRelatedFile(LogBase& log, Email2& root, std::string_view given,
                              XString& contentId) {
    log.logData("path", given);
    const std::string path = pathOfFile(given);
    SharedBody bytes;
    {
        const LogContextExitor context(log, "loadIntoRelatedBody");
        bytes = loadFile(log, path, "File does not exist, or cannot open file.");
    }
    if (!bytes) return false;
    std::string id;
    if (!newContentId(id)) {
        log.logError("Failed to generate Content-ID for related item (1)");
        return false;
    }
    std::unique_ptr<Email2> part = partOf(root, path, std::move(bytes));
    part->setContentId(id);
    root.addRelatedItem(log, std::move(part));
    contentId.setUtf8(std::string_view(id).substr(1, id.size() - 2));
    return true;
}

}  // namespace tv
