// The description taken apart, the form put together, and the judgement on the answer, whose
// errors are told in the server's words.
#include "mail/oauth2/OAuth2Messages.h"

#include <algorithm>

#include "base/Ascii.h"
#include "base/CodePage.h"
#include "base/Json.h"

namespace tv {
namespace {

constexpr size_t kMaxAccount = 1000;          // of an error text that is shown
constexpr uint32_t kDefaultLifetime = 300;    // seconds, of a token that does not tell
constexpr uint32_t kMaxLifetime = 24 * 3600;  // whatever the server promises
constexpr std::string_view kGrantType = "client_credentials";

bool isUnreserved(char c) {
    return isAsciiAlnum(c) || c == '-' || c == '.' || c == '_' || c == '~';
}

bool isHostCharacter(char c) {
    return isAsciiAlnum(c) || c == '-' || c == '.' || c == '_';
}

bool isPrintable(char c) {
    return c > ' ' && c < '\x7f';
}

void appendFormText(SecureBuffer& form, std::string_view text) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    for (const char c : text) {
        if (isUnreserved(c)) {
            form.push_back(static_cast<uint8_t>(c));
        } else {
            const auto byte = static_cast<uint8_t>(c);
            form.push_back('%');
            form.push_back(static_cast<uint8_t>(kDigits[byte >> 4]));
            form.push_back(static_cast<uint8_t>(kDigits[byte & 15]));
        }
    }
}

void appendField(SecureBuffer& form, std::string_view name, std::string_view value) {
    if (!form.empty()) form.append("&");
    appendFormText(form, name);
    form.append("=");
    appendFormText(form, value);
}

bool readPort(std::string_view text, int& port) {
    if (text.empty() || text.size() > 5 ||
        !std::all_of(text.begin(), text.end(), [](char c) { return isAsciiDigit(c); })) {
        return false;
    }
    port = 0;
    for (const char digit : text) {
        port = port * 10 + (digit - '0');
    }
    return port > 0 && port <= 65535;
}

bool readAuthority(std::string_view text, OAuth2Request& request) {
    size_t end = text.find(':');
    if (text.starts_with('[')) {
        const size_t close = text.find(']');
        if (close == std::string_view::npos) return false;
        request.host = text.substr(1, close - 1);
        const bool valid = std::all_of(request.host.begin(), request.host.end(), [](char c) {
            return isAsciiAlnum(c) || c == ':' || c == '.';
        });
        if (!valid) return false;
        end = close + 1 < text.size() ? close + 1 : std::string_view::npos;
        if (end != std::string_view::npos && text[end] != ':') return false;
    } else {
        request.host = text.substr(0, end);
        if (!std::all_of(request.host.begin(), request.host.end(), isHostCharacter)) return false;
    }
    if (request.host.empty()) return false;
    return end == std::string_view::npos || readPort(text.substr(end + 1), request.port);
}

bool readEndpoint(std::string_view url, OAuth2Request& request) {
    const size_t colon = url.find("://");
    if (colon == std::string_view::npos) return false;
    const std::string_view scheme = url.substr(0, colon);
    request.secure = equalsIgnoreCase(scheme, "https");
    request.port = request.secure ? 443 : 80;
    if (!request.secure && !equalsIgnoreCase(scheme, "http")) return false;
    url.remove_prefix(colon + 3);
    if (!std::all_of(url.begin(), url.end(), isPrintable)) return false;
    url = url.substr(0, url.find('#'));
    const size_t slash = std::min(url.find_first_of("/?"), url.size());
    if (!readAuthority(url.substr(0, slash), request)) return false;
    request.path = url.substr(slash);
    if (!request.path.starts_with('/')) request.path.insert(0, "/");
    return true;
}

bool isScalar(const JsonMember& member) {
    using Kind = JsonMember::Kind;
    return member.kind == Kind::Text || member.kind == Kind::Number || member.kind == Kind::Bool;
}

std::string_view textOf(const std::vector<JsonMember>& members, std::string_view name) {
    const JsonMember* member = findMember(members, name);
    return member && member->kind == JsonMember::Kind::Text ? member->text() : std::string_view();
}

// One line of a server's words, without what could be mistaken for more of the log.
std::string shown(std::string_view text) {
    std::string out = codePageToUtf8(kCodePageUtf8, text.substr(0, kMaxAccount));
    std::replace_if(
        out.begin(), out.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
    return out;
}

std::string errorAccount(const std::vector<JsonMember>& members) {
    std::string account = shown(textOf(members, "error"));
    const std::string_view description = textOf(members, "error_description");
    if (!description.empty()) {
        account += (account.empty() ? "" : ": ") + shown(description);
    }
    return account;
}

// Some servers write the number of seconds as a text.
uint32_t lifetimeOf(const std::vector<JsonMember>& members) {
    const JsonMember* member = findMember(members, "expires_in");
    if (!member || !isScalar(*member)) return kDefaultLifetime;
    uint32_t seconds = 0;
    for (const char c : member->text()) {
        if (!isAsciiDigit(c)) break;
        seconds = std::min<uint32_t>(seconds * 10 + static_cast<uint32_t>(c - '0'), kMaxLifetime);
    }
    return seconds;
}

}  // namespace

bool isOAuth2Description(std::string_view text) {
    const std::string_view inner = trimmed(text);
    return inner.starts_with('{') && inner.ends_with('}');
}

Failure readOAuth2Description(std::string_view json, OAuth2Request& request) {
    const auto members = readJsonObject(json);
    if (!members) {
        return Failure(Cause::OAuth2Description, "The OAuth2 description is not a JSON object.");
    }
    if (!readEndpoint(textOf(*members, "token_endpoint"), request)) {
        return Failure(
            Cause::OAuth2Description,
            "The OAuth2 description needs \"token_endpoint\", a URL that begins with https://.");
    }
    request.clientId = textOf(*members, "client_id");
    request.scope = textOf(*members, "scope");
    request.clientSecret.append(textOf(*members, "client_secret"));
    if (request.clientId.empty() || request.clientSecret.empty()) {
        return Failure(Cause::OAuth2Description,
                       "The OAuth2 description needs \"client_id\" and \"client_secret\".");
    }
    appendField(request.form, "grant_type", kGrantType);
    for (const JsonMember& member : *members) {
        if (member.name == "token_endpoint" || member.name == "grant_type") continue;
        if (!isScalar(member)) {
            return Failure(Cause::OAuth2Description, "The OAuth2 description's \"" +
                                                         shown(member.name) + "\" is not a text.");
        }
        appendField(request.form, member.name, member.text());
    }
    return {};
}

SecureBuffer oauth2HttpRequest(const OAuth2Request& request) {
    const bool isIpv6 = request.host.find(':') != std::string::npos;
    std::string host = isIpv6 ? "[" + request.host + "]" : request.host;
    if (request.port != (request.secure ? 443 : 80)) host += ":" + std::to_string(request.port);
    const std::string head = "POST " + request.path + " HTTP/1.1\r\nHost: " + host +
                             "\r\nContent-Type: application/x-www-form-urlencoded"
                             "\r\nAccept: application/json\r\nContent-Length: " +
                             std::to_string(request.form.size()) + "\r\nConnection: close\r\n\r\n";
    SecureBuffer out;
    out.reserve(head.size() + request.form.size());
    out.append(head);
    out.append(request.form.bytes());
    return out;
}

Failure readOAuth2Token(const HttpReply& reply, OAuth2Token& token) {
    const std::string_view body(reinterpret_cast<const char*>(reply.body.data()),
                                reply.body.size());
    const auto members = readJsonObject(body);
    if (reply.status != 200) {
        const std::string account = members ? errorAccount(*members) : std::string();
        const bool isRedirect = reply.status >= 300 && reply.status < 400;
        return Failure(Cause::OAuth2Answer,
                       "The token endpoint answered " + std::to_string(reply.status) +
                           (account.empty() ? "" : " " + account) + "." +
                           (isRedirect ? " Redirects are not followed: give the final URL." : ""));
    }
    if (!members || textOf(*members, "access_token").empty()) {
        return Failure(Cause::OAuth2Answer, "The token endpoint's answer holds no access token.");
    }
    const std::string_view type = textOf(*members, "token_type");
    if (!type.empty() && !equalsIgnoreCase(type, "bearer")) {
        return Failure(Cause::OAuth2Answer, "The token endpoint gave a token of the type " +
                                                shown(type) + ", not Bearer.");
    }
    token.accessToken.append(textOf(*members, "access_token"));
    token.lifetimeSeconds = lifetimeOf(*members);
    return {};
}

}  // namespace tv
