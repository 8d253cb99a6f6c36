// One MIME node of a message: the root is the whole message, each part a child. Bodies are
// immutable blocks that a copy of the tree shares with its original.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/DataBuffer.h"
#include "log/LogBase.h"
#include "mime/MimeHeader.h"
#include "mime/OutputStream.h"
#include "mime/tvContentType.h"
#include "mime/tvEmailAddress.h"
#include "mime/tvEmailCommon.h"
#include "platform/SysClock.h"

namespace tv {

using SharedBody = std::shared_ptr<const DataBuffer>;

struct RenderOptions {
    std::string_view excludedPrefix;  // fields whose name begins with it stay out; empty for none
    bool utf8Headers = false;         // addresses stand in UTF-8 (RFC 6532)
    bool angleBrackets = false;       // around addresses without a name, too
};

class Email2 {
public:
    // A fresh message: its header and an empty text body. A part that is to become a child of
    // another node carries Content-* fields only.
    Email2(LogBase& log, std::shared_ptr<_tvEmailCommon> common);
    static std::unique_ptr<Email2> createPart(std::shared_ptr<_tvEmailCommon> common);
    std::unique_ptr<Email2> createSubPart() const { return createPart(common_); }
    ~Email2();
    Email2(const Email2&) = delete;
    Email2& operator=(const Email2&) = delete;

    bool isValid() const { return tag_ == kTag; }

    // What follows leaves the tree alone and gives the same bytes however often it is called:
    // boundaries and identifiers live in the tree. False, with the reason logged, when the stream
    // fails or the node is not valid; what was written before stays written.
    bool render(LogBase& log, OutputStream& out, const RenderOptions& options) const;

    // The copy that is sent: fresh Date, fresh Message-ID if wanted, internal fields applied and
    // removed. nullptr with the reason logged where no Message-ID could be drawn.
    std::unique_ptr<Email2> createForSending(LogBase& log, bool autoMessageId) const;
    // Of a copy that is sent. Images of the HTML body say that they belong into it, and what their
    // files are called.
    void showRelatedInline();
    // Text files of which some reader would change or refuse bytes (line ends that are no CR LF,
    // NUL, what is no UTF-8) go as base64 without a charset.
    void keepTextFilesExact();
    // The envelope sender by the order of its sources.
    std::string getSmtpReversePath(LogBase& log) const;
    // Draws a new identifier unless 20 bytes are already there.
    bool generateMessageId(LogBase& log);

    MimeHeader& header() { return header_; }
    const MimeHeader& header() const { return header_; }
    _tvEmailCommon& common() { return *common_; }
    const _tvEmailCommon& common() const { return *common_; }
    const _tvContentType& contentType() const { return contentType_; }
    const std::vector<std::unique_ptr<Email2>>& children() const { return children_; }
    const SharedBody& body() const { return body_; }
    std::string_view bodyText() const { return body_ ? body_->text() : std::string_view(); }
    const std::string& transferEncoding() const { return transferEncoding_; }
    const std::string& contentId() const { return contentId_; }

    enum class Recipients { To, Cc, Bcc };
    std::vector<_tvEmailAddress>& recipients(Recipients kind) { return lists_[index(kind)]; }
    const std::vector<_tvEmailAddress>& recipients(Recipients kind) const {
        return lists_[index(kind)];
    }
    _tvEmailAddress& from() { return from_; }
    const _tvEmailAddress& from() const { return from_; }
    // Give "To", "Cc" or "Bcc" and "From" their place in the header, or take it from an empty list.
    // The field's own text stands for nothing: the list itself is written when the header is.
    void rebuildRecipientField(Recipients kind);
    void rebuildFromField();

    // The shape of the tree; of a root unless said otherwise.

    // The body of type text/html or text/plain. Where it lands depends on what is there.
    bool setBody(LogBase& log, std::string_view utf8, std::string_view type);
    // A plain text made of the HTML body, beside it, where there is HTML alone. False if memory
    // ends.
    bool addTextAlternative(LogBase& log);
    void addAttachment(LogBase& log, std::unique_ptr<Email2> part);
    void addRelatedItem(LogBase& log, std::unique_ptr<Email2> part);
    // This node becomes the subtype; what it was becomes its child (any node).
    void convertToMultipart(LogBase& log, std::string_view type);
    // A plain text that is the first child of a mixed root moves into an enclosure of its own,
    // where an HTML body may join it.
    void moveMixedPlainTextToAlternative(LogBase& log);
    void removeBody(std::string_view type);
    void dropAttachments();
    void dropRelatedItems();
    // The text body of that type; nullptr if there is none. Attachments and related items are none.
    Email2* findBody(std::string_view type);
    const Email2* findBody(std::string_view type) const;

    // What a part made of a file is; the bytes go out as they are. charset is the code page that a
    // text part declares.
    void setFileContent(std::string_view type, uint32_t charset, std::string_view fileName,
                        SharedBody bytes);
    void setDisposition(std::string_view disposition, std::string_view fileName);
    void setContentId(std::string_view idWithBrackets);
    // The body alone, with everything else left as it is.
    void setBodyBytes(SharedBody bytes) { body_ = std::move(bytes); }
    void setTransferEncoding(std::string_view encoding);

    bool isAttachment() const { return disposition_ == "attachment"; }
    bool isRelatedItem() const { return !contentId_.empty() && !isAttachment(); }
    bool isMultipart() const { return contentType_.isMultipart(); }
    // An empty text that only stands for a body to come.
    bool isPlaceholder() const;

private:
    // A number that stray memory hardly holds.
    static constexpr uint32_t kTag = 0xF592C107;
    static constexpr size_t index(Recipients kind) { return static_cast<size_t>(kind); }
    struct Leaf;

    explicit Email2(std::shared_ptr<_tvEmailCommon> common);
    void setContentType(std::string_view type);
    void setFreshText();
    void applyInternalFields();
    std::unique_ptr<Email2> clone(const std::shared_ptr<_tvEmailCommon>& common) const;

    std::unique_ptr<Email2> createMultipart(std::string_view type) const;
    std::unique_ptr<Email2> takeChild(size_t at);
    Email2& insertChild(size_t at, std::unique_ptr<Email2> child);
    Email2* findMultipart(std::string_view type);
    size_t childIndexOf(const Email2* child) const;
    Email2* parentOf(const Email2* node);
    void takeContentOf(Email2& other);
    bool isTextBody() const;
    Email2& placeForBody(LogBase& log, std::string_view type);
    Email2& firstPartForBody();
    Email2& addAlternativeEnclosure(LogBase& log);
    Email2& relatedEnclosure(LogBase& log);
    Email2& encloseRelated(const Email2* child);
    void collapse();
    void tidy();
    template <class Wanted>
    void dropParts(Wanted wanted);

    bool renderNode(LogBase& log, OutputStream& out, const RenderOptions& options) const;
    bool renderChildren(LogBase& log, OutputStream& out, const RenderOptions& options) const;
    bool renderHeader(LogBase& log, const Leaf* leaf, OutputStream& out,
                      const RenderOptions& options) const;
    void writeHeaderField(LogBase& log, const MimeHeader::Field& field, const Leaf* leaf,
                          const RenderOptions& options, std::string& out) const;
    std::span<const _tvEmailAddress> addressesOf(std::string_view field) const;
    Leaf prepareLeaf(LogBase& log) const;
    void convertText(LogBase& log, Leaf& leaf) const;
    bool renderBody(LogBase& log, const Leaf& leaf, OutputStream& out) const;

    uint32_t tag_ = kTag;
    std::shared_ptr<_tvEmailCommon> common_;
    SharedBody body_;  // decoded; text bodies are UTF-8
    std::vector<std::unique_ptr<Email2>> children_;
    MimeHeader header_;
    std::vector<_tvEmailAddress> lists_[3];
    _tvEmailAddress from_;
    plat::CivilTime date_;
    std::string transferEncoding_;
    std::string disposition_;
    std::string fileName_;
    _tvContentType contentType_;
    std::string contentId_;
    std::vector<uint8_t> messageIdBytes_;
    bool isFile_ = false;  // bytes as they lie on disk: no charset is ever changed
};

}  // namespace tv
