#include "mime/tvEmailAddress.h"

#include "base/Ascii.h"
#include "base/Punycode.h"
#include "mime/HeaderText.h"

namespace tv {
namespace {

// Hosts wrap addresses in brackets and end them with semicolons, in any order.
std::string_view bareAddress(std::string_view text) {
    size_t before;
    do {
        before = text.size();
        text = trimmed(text);
        while (!text.empty() && (text.front() == '<' || text.front() == ';')) {
            text.remove_prefix(1);
        }
        while (!text.empty() && (text.back() == '>' || text.back() == ';')) {
            text.remove_suffix(1);
        }
    } while (text.size() != before);
    return text;
}

// A name without its outer quotes. Escapes inside stay, because the name is written between quotes
// again; not so a name that will be an encoded word.
std::string unquoted(std::string_view name) {
    if (name.size() < 2 || name.front() != '"' || name.back() != '"') return std::string(name);
    const std::string_view inner = name.substr(1, name.size() - 2);
    if (!needsEncoding(inner)) return std::string(inner);
    std::string out;
    for (size_t i = 0; i < inner.size(); ++i) {
        if (inner[i] == '\\' && i + 1 < inner.size()) ++i;
        out += inner[i];
    }
    return out;
}

}  // namespace

_tvEmailAddress::_tvEmailAddress(std::string_view name, std::string_view address) {
    setName(name);
    setAddress(address);
}

_tvEmailAddress _tvEmailAddress::parse(std::string_view mailbox) {
    const std::string_view text = trimmed(mailbox);
    const size_t open = text.rfind('<');
    if (open == std::string_view::npos) return {{}, text};
    const std::string_view address = text.substr(open, text.find('>', open) - open);
    const size_t nameEnd = text.find_last_not_of("< \t", open) + 1;
    return {unquoted(text.substr(0, nameEnd)), address};
}

void _tvEmailAddress::setName(std::string_view name) {
    name_ = trimmed(withoutControls(name));
}

void _tvEmailAddress::setAddress(std::string_view address) {
    const std::string clean = withoutControls(address);
    address_ = bareAddress(clean);
    const size_t at = address_.rfind('@');
    if (at == std::string::npos) return;
    std::string domain;
    if (domainToAscii(std::string_view(address_).substr(at + 1), domain)) {
        address_.replace(at + 1, std::string::npos, domain);
    }
}

bool _tvEmailAddress::needsSmtpUtf8() const {
    return needsSmtpUtf8(address_);
}

bool _tvEmailAddress::needsSmtpUtf8(std::string_view address) {
    return !isAscii(address.substr(0, address.rfind('@')));
}

}  // namespace tv
