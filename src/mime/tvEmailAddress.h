// One mailbox: a display name, which may be empty, and the bare address.
#pragma once

#include <string>
#include <string_view>

namespace tv {

class _tvEmailAddress {
public:
    _tvEmailAddress() = default;
    // Both lose what may not stand in a header line (NUL, other control characters) and the white
    // space at their ends. A line break in a name becomes a blank; a domain with letters outside
    // ASCII takes its ASCII form (RFC 3490).
    _tvEmailAddress(std::string_view name, std::string_view address);

    const std::string& name() const { return name_; }
    const std::string& address() const { return address_; }
    void setName(std::string_view name);
    void setAddress(std::string_view address);

    bool empty() const { return address_.empty(); }
    // True where only a server with SMTPUTF8 can take an address (RFC 6531): its local part has
    // letters outside ASCII. Domains have an ASCII form, local parts have none.
    static bool needsSmtpUtf8(std::string_view address);
    // False for an address that no header line can hold (RFC 5322 section 2.1.1).
    bool fitsHeader() const { return address_.size() <= kLongestAddress; }

    // More than twice what SMTP must take (RFC 5321 section 4.5.3.1), and a line of 998 has room
    // for a name beside it.
    static constexpr size_t kLongestAddress = 700;

private:
    std::string name_;
    std::string address_;
};

}  // namespace tv
