// Status line, header fields and body, of a length or in chunks. Each call reads from the start: a
// reply is small and comes in a few pieces.
#include "mail/oauth2/HttpReply.h"

#include <algorithm>
#include <optional>

#include "base/Ascii.h"

namespace tv {
namespace {

constexpr size_t kMaxLength = size_t{1} << 24;  // far above what a caller keeps
constexpr std::string_view kHeadEnd = "\r\n\r\n";

struct Head {
    int status = 0;
    bool chunked = false;
    std::optional<size_t> length;
};

bool readNumber(std::string_view text, unsigned base, size_t& number) {
    number = 0;
    for (const char digit : text) {
        const char c = asciiLower(digit);
        unsigned value = base;
        if (isAsciiDigit(c)) value = static_cast<unsigned>(c - '0');
        if (c >= 'a' && c <= 'f') value = static_cast<unsigned>(c - 'a') + 10;
        if (value >= base || number > kMaxLength) return false;
        number = number * base + value;
    }
    return !text.empty() && number <= kMaxLength;
}

// "HTTP/1.1 200 OK"
bool readStatusLine(std::string_view line, int& status) {
    if (line.size() < 12 || !line.starts_with("HTTP/1.") || line[8] != ' ') return false;
    size_t number = 0;
    if (!readNumber(line.substr(9, 3), 10, number) || number < 100) return false;
    if (line.size() > 12 && line[12] != ' ') return false;
    status = static_cast<int>(number);
    return true;
}

bool readField(std::string_view line, Head& head) {
    const size_t colon = line.find(':');
    if (colon == 0 || colon == std::string_view::npos) return false;
    const std::string_view name = line.substr(0, colon);
    const std::string_view value = trimmed(line.substr(colon + 1));
    if (equalsIgnoreCase(name, "Transfer-Encoding")) {
        if (head.chunked || !equalsIgnoreCase(value, "chunked")) return false;
        head.chunked = true;
    } else if (equalsIgnoreCase(name, "Content-Length")) {
        size_t length = 0;
        if (!readNumber(value, 10, length)) return false;
        if (head.length && *head.length != length) return false;
        head.length = length;
    }
    return true;
}

// text: the head's lines without the empty one.
bool readHead(std::string_view text, Head& head) {
    size_t end = std::min(text.find("\r\n"), text.size());
    if (!readStatusLine(text.substr(0, end), head.status)) return false;
    while (end < text.size()) {
        text.remove_prefix(end + 2);
        end = std::min(text.find("\r\n"), text.size());
        if (!readField(text.substr(0, end), head)) return false;
    }
    return !(head.chunked && head.length);
}

HttpRead readChunks(std::string_view text, SecureBuffer& body) {
    for (;;) {
        const size_t lineEnd = text.find("\r\n");
        if (lineEnd == std::string_view::npos) return HttpRead::NeedMore;
        const std::string_view line = text.substr(0, lineEnd);
        size_t size = 0;
        if (!readNumber(trimmed(line.substr(0, line.find(';'))), 16, size)) {
            return HttpRead::Malformed;
        }
        if (size == 0) return HttpRead::Complete;  // nobody asks for trailers
        text.remove_prefix(lineEnd + 2);
        if (text.size() < size + 2) return HttpRead::NeedMore;
        if (text.substr(size, 2) != "\r\n") return HttpRead::Malformed;
        body.append(text.substr(0, size));
        text.remove_prefix(size + 2);
    }
}

HttpRead readBody(const Head& head, std::string_view text, bool atEnd, SecureBuffer& body) {
    if (head.status == 204 || head.status == 304) return HttpRead::Complete;
    if (head.chunked) return readChunks(text, body);
    if (head.length && text.size() < *head.length) return HttpRead::NeedMore;
    if (!head.length && !atEnd) return HttpRead::NeedMore;
    body.append(head.length ? text.substr(0, *head.length) : text);
    return HttpRead::Complete;
}

}  // namespace

HttpRead readHttpReply(std::string_view received, bool atEnd, HttpReply& reply) {
    HttpRead result = HttpRead::NeedMore;
    for (;;) {
        const size_t end = received.find(kHeadEnd);
        if (end == std::string_view::npos) break;
        Head head;
        if (!readHead(received.substr(0, end), head)) return HttpRead::Malformed;
        received.remove_prefix(end + kHeadEnd.size());
        if (head.status < 200) continue;
        reply.status = head.status;
        reply.body.clear();
        result = readBody(head, received, atEnd, reply.body);
        break;
    }
    return result == HttpRead::NeedMore && atEnd ? HttpRead::Malformed : result;
}

}  // namespace tv
