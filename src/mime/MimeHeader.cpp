// Fields set, found and written.
#include "mime/MimeHeader.h"

#include <algorithm>

#include "base/Ascii.h"
#include "mime/HeaderText.h"

namespace tv {
namespace {

auto named(std::string_view name) {
    return [name](const MimeHeader::Field& field) { return equalsIgnoreCase(field.name, name); };
}

}  // namespace

void MimeHeader::set(std::string_view name, std::string_view value) {
    setBehind({}, name, value);
}

void MimeHeader::setBehind(std::string_view after, std::string_view name, std::string_view value) {
    const std::string clean = onOneLine(value);
    const std::string_view text = trimmed(clean);
    if (text.empty()) {
        remove(name);
        return;
    }
    const auto first = std::find_if(fields_.begin(), fields_.end(), named(name));
    if (first != fields_.end()) {
        first->value = text;
    } else {
        auto place = after.empty() ? fields_.end()
                                   : std::find_if(fields_.begin(), fields_.end(), named(after));
        if (place != fields_.end()) ++place;
        fields_.insert(place, {std::string(name), std::string(text)});
    }
}

void MimeHeader::remove(std::string_view name) {
    std::erase_if(fields_, named(name));
}

void MimeHeader::addEmpty(std::string_view name) {
    if (!has(name)) fields_.push_back({std::string(name), {}});
}

std::string_view MimeHeader::get(std::string_view name) const {
    const auto field = std::find_if(fields_.begin(), fields_.end(), named(name));
    return field == fields_.end() ? std::string_view() : std::string_view(field->value);
}

bool MimeHeader::isAddressField(std::string_view name) {
    constexpr std::string_view kNames[] = {"From",        "To",        "Cc",        "Bcc",
                                           "Reply-To",    "Sender",    "Resent-To", "Resent-Cc",
                                           "Resent-From", "Resent-Bcc"};
    return std::any_of(std::begin(kNames), std::end(kNames),
                       [name](std::string_view known) { return equalsIgnoreCase(known, name); });
}

void MimeHeader::writeField(LogBase& log, const Field& field, uint32_t codePage, AddressForm form,
                            std::string& out) {
    const std::string_view value = field.value;
    out += field.name;
    out += ": ";
    // Its address stands in brackets as long as there is a form of it to stand there.
    const bool receipt = equalsIgnoreCase(field.name, "Disposition-Notification-To");
    if (receipt && form.utf8) {
        out += value;
        return;
    }
    if ((isAddressField(field.name) || (receipt && !isAscii(value))) &&
        value.find('@') != std::string_view::npos &&
        value.find("undisclosed-recipients") == std::string_view::npos) {
        const std::vector<_tvEmailAddress> list = parseMailboxes(value);
        out += formatAddressList(list, codePage, form);
        if (!list.empty()) return;
    }
    if (log.isVerbose() && !needsEncoding(value)) log.logVerbose("Does not need encoding...");
    appendHeaderText(value, codePage, field.name.size() + 2, out);
}

}  // namespace tv
