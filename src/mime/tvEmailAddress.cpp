// A mailbox and what its address needs.
#include "mime/tvEmailAddress.h"

#include "base/Ascii.h"
#include "base/Punycode.h"
#include "mime/HeaderText.h"

namespace tv {

_tvEmailAddress::_tvEmailAddress(std::string_view name, std::string_view address) {
    setName(name);
    setAddress(address);
}

void _tvEmailAddress::setName(std::string_view name) {
    name_ = trimmed(withoutControls(onOneLine(name)));
}

void _tvEmailAddress::setAddress(std::string_view address) {
    address_ = trimmed(withoutControls(address));
    const size_t at = address_.rfind('@');
    if (at == std::string::npos || isAscii(address_)) return;
    std::string domain;
    if (domainToAscii(std::string_view(address_).substr(at + 1), domain)) {
        address_.replace(at + 1, std::string::npos, domain);
    }
}

bool _tvEmailAddress::needsSmtpUtf8(std::string_view address) {
    return !isAscii(address.substr(0, address.rfind('@')));
}

}  // namespace tv
