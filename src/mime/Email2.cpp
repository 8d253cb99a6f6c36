// A node by itself: how it is made, its identifiers, its fields, its addresses. Tree, preparation
// and rendering stand in the sources beside this one.
#include "mime/Email2.h"

#include <algorithm>
#include <cstring>

#include "base/DateTime.h"
#include "base/Random.h"
#include "mime/Identifiers.h"
#include "mime/ParameterText.h"

namespace tv {
namespace {

// So many that no two messages draw the same, ever (RFC 5322 section 3.6.4).
constexpr size_t kMessageIdBytes = 20;

bool draw(std::vector<uint8_t>& bytes) {
    bytes.assign(kMessageIdBytes, 0);
    if (randomBytes(bytes)) return true;
    bytes.clear();
    return false;
}

}  // namespace

Email2::Email2(std::shared_ptr<_tvEmailCommon> common) : common_(std::move(common)) {}

Email2::Email2(LogBase& log, std::shared_ptr<_tvEmailCommon> common) : Email2(std::move(common)) {
    header_.set("MIME-Version", "1.0");
    date_ = plat::sysClock().localTime();
    header_.set("Date", mailDate(date_));
    generateMessageId(log);
    setFreshText();
    header_.set("X-Priority", "3 (Normal)");
}

std::unique_ptr<Email2> Email2::createPart(std::shared_ptr<_tvEmailCommon> common) {
    std::unique_ptr<Email2> part(new Email2(std::move(common)));
    part->setFreshText();
    return part;
}

// The tag goes too: a stale pointer finds a dead node rather than a plausible one.
Email2::~Email2() {
    *static_cast<volatile uint32_t*>(&tag_) = 0;
}

std::unique_ptr<Email2> Email2::clone(const std::shared_ptr<_tvEmailCommon>& common) const {
    std::unique_ptr<Email2> copy(new Email2(common));
    copy->body_ = body_;
    for (const auto& child : children_) {
        copy->children_.push_back(child->clone(common));
    }
    copy->header_ = header_;
    std::copy(std::begin(lists_), std::end(lists_), std::begin(copy->lists_));
    copy->from_ = from_;
    copy->date_ = date_;
    copy->transferEncoding_ = transferEncoding_;
    copy->disposition_ = disposition_;
    copy->fileName_ = fileName_;
    copy->contentType_ = contentType_;
    copy->contentId_ = contentId_;
    copy->messageIdBytes_ = messageIdBytes_;
    copy->isFile_ = isFile_;
    return copy;
}

bool Email2::generateMessageId(LogBase& log) {
    std::vector<uint8_t>& bytes = messageIdBytes_;
    if (bytes.size() != kMessageIdBytes && !draw(bytes) && !draw(bytes)) {
        log.logError("Failed to generate random bytes for email Message-ID");
        return false;
    }
    // Zeros are what a broken source gives: it has one more chance.
    const bool allZero = std::all_of(bytes.begin(), bytes.end(), [](uint8_t b) { return b == 0; });
    if (allZero && !draw(bytes)) {
        log.logError("Failed to generate random bytes for email Message-ID.");
        return false;
    }
    header_.setBehind("Date", "Message-ID", messageIdOf(bytes));
    return true;
}

void Email2::setContentType(std::string_view type) {
    contentType_ = _tvContentType(type);
    header_.set("Content-Type", type);
}

void Email2::setTransferEncoding(std::string_view encoding) {
    transferEncoding_ = encoding;
    header_.setBehind("Content-Type", "Content-Transfer-Encoding", encoding);
}

void Email2::setFreshText() {
    setContentType("text/plain");
    setTransferEncoding("7bit");
    body_.reset();
    children_.clear();
    isFile_ = false;
}

void Email2::setFileContent(std::string_view type, uint32_t charset, std::string_view fileName,
                            SharedBody bytes) {
    setContentType(type);
    contentType_.setCharset(charset);
    contentType_.name = fileName;
    isFile_ = true;
    body_ = std::move(bytes);
}

void Email2::setDisposition(std::string_view disposition, std::string_view fileName) {
    disposition_ = disposition;
    fileName_ = fileName;
    header_.set("Content-Disposition", dispositionValue(disposition_, fileName_));
}

void Email2::setContentId(std::string_view idWithBrackets) {
    contentId_ = idWithBrackets;
    header_.set("Content-ID", contentId_);
}

void Email2::rebuildRecipientField(Recipients kind) {
    constexpr std::string_view kNames[] = {"To", "Cc", "Bcc"};
    const std::vector<_tvEmailAddress>& list = recipients(kind);
    header_.set(kNames[index(kind)], list.empty() ? std::string_view() : list.front().address());
}

void Email2::rebuildFromField() {
    header_.set("From", from_.address());
}

bool Email2::isTextBody() const {
    return contentType_.isText() && !isFile_;
}

bool Email2::isPlaceholder() const {
    return isTextBody() && contentType_.is("text/plain") && bodyText().empty();
}

}  // namespace tv
