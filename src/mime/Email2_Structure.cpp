// The shape of the tree: where bodies, related items and attachments go.
#include <algorithm>
#include <iterator>

#include "base/Ascii.h"
#include "base/CodePage.h"
#include "log/LogContextExitor.h"
#include "mime/Email2.h"
#include "mime/HtmlToText.h"
#include "mime/Identifiers.h"

namespace tv {
namespace {

constexpr std::string_view kMixed = "multipart/mixed";
constexpr std::string_view kRelated = "multipart/related";
constexpr std::string_view kAlternative = "multipart/alternative";
constexpr std::string_view kHtml = "text/html";
constexpr std::string_view kPlain = "text/plain";

}  // namespace

std::unique_ptr<Email2> Email2::createMultipart(std::string_view type) const {
    std::unique_ptr<Email2> node = createPart(common_);
    node->setContentType(type);
    node->contentType_.boundary = newBoundary();
    node->setTransferEncoding({});
    return node;
}

std::unique_ptr<Email2> Email2::takeChild(size_t at) {
    std::unique_ptr<Email2> child = std::move(children_[at]);
    children_.erase(children_.begin() + static_cast<std::ptrdiff_t>(at));
    return child;
}

Email2& Email2::insertChild(size_t at, std::unique_ptr<Email2> child) {
    at = std::min(at, children_.size());
    return **children_.insert(children_.begin() + static_cast<std::ptrdiff_t>(at),
                              std::move(child));
}

size_t Email2::childIndexOf(const Email2* child) const {
    const auto found = std::find_if(children_.begin(), children_.end(),
                                    [child](const auto& node) { return node.get() == child; });
    return static_cast<size_t>(found - children_.begin());
}

Email2* Email2::parentOf(const Email2* node) {
    if (childIndexOf(node) < children_.size()) return this;
    for (const auto& child : children_) {
        if (Email2* parent = child->parentOf(node)) return parent;
    }
    return nullptr;
}

Email2* Email2::findMultipart(std::string_view type) {
    if (contentType_.is(type)) return this;
    for (const auto& child : children_) {
        if (Email2* found = child->findMultipart(type)) return found;
    }
    return nullptr;
}

const Email2* Email2::findBody(std::string_view type) const {
    if (isTextBody() && contentType_.is(type)) return this;
    for (const auto& child : children_) {
        if (const Email2* found = child->findBody(type)) return found;
    }
    return nullptr;
}

Email2* Email2::findBody(std::string_view type) {
    return const_cast<Email2*>(static_cast<const Email2*>(this)->findBody(type));
}

void Email2::takeContentOf(Email2& other) {
    setContentType(other.contentType_.mediaType());
    contentType_ = other.contentType_;
    setTransferEncoding(other.transferEncoding_);
    body_ = std::move(other.body_);
    isFile_ = other.isFile_;
    children_ = std::move(other.children_);
    other.children_.clear();
}

void Email2::convertToMultipart(LogBase& log, std::string_view type) {
    const LogContextExitor context(log, "convertToMultipartX");
    std::unique_ptr<Email2> child = createPart(common_);
    child->takeContentOf(*this);
    const bool keep =
        child->contentType_.is(kPlain) || !child->bodyText().empty() || !child->children_.empty();
    setContentType(type);
    contentType_.boundary = newBoundary();
    setTransferEncoding({});
    isFile_ = false;
    if (keep) insertChild(0, std::move(child));
}

void Email2::addAttachment(LogBase& log, std::unique_ptr<Email2> part) {
    if (!contentType_.is(kMixed)) convertToMultipart(log, kMixed);
    children_.push_back(std::move(part));
}

// In the order of these cases: what is there decides how close to the HTML the item can be.
Email2& Email2::relatedEnclosure(LogBase& log) {
    if (contentType_.is(kRelated)) return *this;
    for (const auto& child : children_) {
        if (child->contentType_.is(kRelated)) return *child;
    }
    if (Email2* alternative = findMultipart(kAlternative)) {
        for (const auto& child : alternative->children_) {
            if (child->contentType_.is(kRelated)) return *child;
        }
        return alternative->encloseRelated(alternative->findBody(kHtml));
    }
    if (!contentType_.is(kMixed)) {
        convertToMultipart(log, kRelated);
        return *this;
    }
    const auto body = std::find_if(children_.begin(), children_.end(),
                                   [](const auto& child) { return !child->isAttachment(); });
    return encloseRelated(body == children_.end() ? nullptr : body->get());
}

Email2& Email2::encloseRelated(const Email2* child) {
    std::unique_ptr<Email2> related = createMultipart(kRelated);
    const size_t at = childIndexOf(child);
    if (at < children_.size()) related->children_.push_back(takeChild(at));
    return insertChild(contentType_.is(kMixed) && !child ? 0 : at, std::move(related));
}

void Email2::addRelatedItem(LogBase& log, std::unique_ptr<Email2> part) {
    relatedEnclosure(log).children_.push_back(std::move(part));
}

Email2& Email2::addAlternativeEnclosure(LogBase& log) {
    const LogContextExitor context(log, "addAlternativeEnclosure");
    if (!contentType_.is(kMixed)) {
        convertToMultipart(log, kAlternative);
        return *this;
    }
    log.logInfo("Adding a new alternative MIME enclosure beneath the multipart/mixed");
    return insertChild(0, createMultipart(kAlternative));
}

void Email2::moveMixedPlainTextToAlternative(LogBase& log) {
    if (!contentType_.is(kMixed) || children_.empty() || findMultipart(kAlternative)) return;
    const Email2& first = *children_.front();
    if (!first.isTextBody() || !first.contentType_.is(kPlain) || first.isPlaceholder()) return;
    const LogContextExitor context(log, "moveMtMixedPlainTextToAlt");
    log.logInfo("Did not find an existing ALTERNATIVE enclosure, adding one...");
    std::unique_ptr<Email2> plain = takeChild(0);
    insertChild(0, createMultipart(kAlternative)).insertChild(0, std::move(plain));
}

bool Email2::setBody(LogBase& log, std::string_view utf8, std::string_view type) {
    const LogContextExitor context(log, "setBody");
    const auto bytes = std::make_shared<DataBuffer>();
    if (!bytes->append(utf8)) {
        log.logError("Not enough memory for the body.");
        return false;
    }
    if (type.starts_with("multipart/")) {
        log.logError("Invalid body content type.");
        type = kPlain;
    }
    Email2& place = placeForBody(log, type);
    place.setFreshText();
    place.setContentType(type);
    place.contentType_.setCharset(kCodePageUtf8);
    place.body_ = bytes;
    return true;
}

bool Email2::addTextAlternative(LogBase& log) {
    Email2* html = findBody(kHtml);
    const Email2* plain = findBody(kPlain);
    if (!html || (plain && !plain->isPlaceholder())) return true;
    const LogContextExitor context(log, "addTextAlternative");
    // Quoted-printable codes a bare LF, which then is no line end (RFC 2045 section 6.7 (4)).
    const std::string text = replaceAll(htmlToText(html->bodyText()), "\n", "\r\n");
    if (text.empty()) return true;
    if (!findMultipart(kAlternative)) {
        // What the HTML shows stays with it: readers take one form whole (RFC 2046 section 5.1.4).
        Email2* parent = parentOf(html);
        Email2& whole = parent && parent->contentType_.is(kRelated) ? *parent : *html;
        whole.convertToMultipart(log, kAlternative);
    }
    return setBody(log, text, kPlain);
}

Email2& Email2::placeForBody(LogBase& log, std::string_view type) {
    const bool html = type == kHtml;
    if (Email2* existing = html ? findBody(kHtml) : nullptr) {
        log.logInfo("Found existing HTML body.");
        return *existing;
    }
    if (Email2* alternative = findMultipart(kAlternative)) {
        log.logInfo("Found multipart/alternative enclosure.");
        if (Email2* same = alternative->findBody(type)) return *same;
        // readers take the last form they understand (RFC 2046 section 5.1.4)
        return alternative->insertChild(html ? SIZE_MAX : 0, createPart(common_));
    }
    if (Email2* related = html ? findMultipart(kRelated) : nullptr) {
        log.logInfo("Found multipart/related enclosure.");
        return related->firstPartForBody();
    }
    log.logInfo("No multipart/related enclosure found to exist yet.");
    if (!isMultipart()) {
        log.logInfo("Replacing THIS body...");
        return *this;
    }
    log.logInfo("Adding new non-multipart body...");
    if (contentType_.is(kMixed) && !children_.empty()) {
        const Email2& first = *children_.front();
        if (first.isTextBody() && first.contentType_.is(type)) return *children_.front();
        if (html && first.isTextBody() && first.contentType_.is(kPlain) && !first.isPlaceholder()) {
            std::unique_ptr<Email2> plain = takeChild(0);
            Email2& alternative = addAlternativeEnclosure(log);
            alternative.insertChild(0, std::move(plain));
            return alternative.insertChild(1, createPart(common_));
        }
    }
    log.logInfo("Inserting new MIME part...");
    return firstPartForBody();
}

Email2& Email2::firstPartForBody() {
    if (!children_.empty() && children_.front()->isPlaceholder()) return *children_.front();
    return insertChild(0, createPart(common_));
}

void Email2::removeBody(std::string_view type) {
    Email2* body = findBody(type);
    if (!body) return;
    if (Email2* parent = parentOf(body)) {
        parent->takeChild(parent->childIndexOf(body));
        tidy();
    } else {
        setFreshText();
    }
}

template <class Wanted>
void Email2::dropParts(Wanted wanted) {
    std::erase_if(children_, wanted);
    for (const auto& child : children_) {
        child->dropParts(wanted);
    }
}

void Email2::dropAttachments() {
    dropParts([](const auto& part) { return part->isAttachment(); });
    tidy();
}

void Email2::dropRelatedItems() {
    dropParts([](const auto& part) { return part->isRelatedItem(); });
    tidy();
}

// An enclosure around one body is that body.
void Email2::collapse() {
    for (const auto& child : children_) {
        child->collapse();
    }
    std::erase_if(children_, [](const auto& child) {
        return child->isMultipart() && child->children_.empty();
    });
    if (isMultipart() && children_.size() == 1 && !children_.front()->isFile_) {
        const std::unique_ptr<Email2> only = takeChild(0);
        takeContentOf(*only);
    }
}

void Email2::tidy() {
    collapse();
    if (isMultipart() && children_.empty()) setFreshText();
}

}  // namespace tv
