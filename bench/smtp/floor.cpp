// The floor of the SMTP benchmark: bare sockets and OpenSSL, MAIL, RCPT and DATA in one write, the
// file streamed through EVP_EncodeBlock in blocks that fit the cache. It checks nothing, so no
// complete client can do much less work.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

#include "Client.h"

namespace {

class Wire {
public:
    ~Wire() { close(); }
    void close() {
        if (tls_) SSL_shutdown(tls_);  // or its session would count as broken
        SSL_free(std::exchange(tls_, nullptr));
        if (fd_ >= 0) ::close(std::exchange(fd_, -1));
    }

    bool open(const bench::Options& options) {
        fd_ = socket(AF_INET, SOCK_STREAM, 0);
        const int one = 1;
        setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(options.port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return false;
        if (options.tls == "implicit" && !startTls(options)) return false;
        if (!reply() || !send("EHLO client\r\n") || !reply()) return false;
        if (options.tls != "starttls") return true;
        return send("STARTTLS\r\n") && reply() && startTls(options) && send("EHLO client\r\n") &&
               reply();
    }

    bool send(const std::string& text) { return send(text.data(), text.size()); }
    bool send(const char* bytes, size_t size) {
        while (size > 0) {
            const ssize_t sent = tls_ ? SSL_write(tls_, bytes, static_cast<int>(size))
                                      : ::send(fd_, bytes, size, MSG_NOSIGNAL);
            if (sent <= 0) return false;
            bytes += sent;
            size -= static_cast<size_t>(sent);
        }
        return true;
    }

    // For the next connection.
    void keepSession() {
        SSL_SESSION_free(session_);
        session_ = tls_ ? SSL_get1_session(tls_) : nullptr;
    }

    // One whole reply, which has to be positive.
    bool reply() {
        for (;;) {
            size_t end = 0;
            while ((end = in_.find('\n')) != std::string::npos) {
                const bool last = in_.size() > 3 && in_[3] != '-';
                const bool good = in_[0] < '4';
                in_.erase(0, end + 1);
                if (!good) return false;
                if (last) return true;
            }
            char buffer[4096];
            const ssize_t got =
                tls_ ? SSL_read(tls_, buffer, sizeof buffer) : recv(fd_, buffer, sizeof buffer, 0);
            if (got <= 0) return false;
            in_.append(buffer, static_cast<size_t>(got));
        }
    }

private:
    bool startTls(const bench::Options& options) {
        static SSL_CTX* const context = makeContext(options);
        tls_ = SSL_new(context);
        if (session_) SSL_set_session(tls_, session_);
        return SSL_set_fd(tls_, fd_) == 1 && SSL_connect(tls_) == 1;
    }

    static SSL_CTX* makeContext(const bench::Options& options) {
        SSL_CTX* context = SSL_CTX_new(TLS_client_method());
        if (!options.ca.empty()) {
            SSL_CTX_load_verify_locations(context, options.ca.c_str(), nullptr);
            SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
        }
        return context;
    }

    int fd_ = -1;
    SSL* tls_ = nullptr;
    SSL_SESSION* session_ = nullptr;
    std::string in_;
};

constexpr size_t kLine = 57;  // bytes in a line of 76 characters
constexpr size_t kLines = 3072;

std::string encodeLines(const unsigned char* bytes, size_t size) {
    std::string out(kLines * 78, '\0');
    char* end = out.data();
    for (size_t at = 0; at < size; at += kLine) {
        unsigned char line[80];
        const int length =
            EVP_EncodeBlock(line, bytes + at, static_cast<int>(std::min(kLine, size - at)));
        std::memcpy(end, line, static_cast<size_t>(length));
        std::memcpy(end + length, "\r\n", 2);
        end += length + 2;
    }
    out.resize(static_cast<size_t>(end - out.data()));
    return out;
}

bool sendFile(Wire& wire, const std::string& path) {
    static std::vector<unsigned char> block(kLine * kLines);
    const int fd = open(path.c_str(), O_RDONLY);
    bool good = fd >= 0;
    ssize_t got = 0;
    while (good && (got = read(fd, block.data(), block.size())) > 0) {
        good = wire.send(encodeLines(block.data(), static_cast<size_t>(got)));
    }
    close(fd);
    return good;
}

bool sendMessage(Wire& wire, const bench::Options& options, const std::string& html) {
    std::string envelope = "MAIL FROM:<" + bench::kSender + ">\r\n";
    for (int i = 0; i < options.recipients; ++i) {
        envelope += "RCPT TO:<" + bench::recipient(i) + ">\r\n";
    }
    bool good = wire.send(envelope + "DATA\r\n");
    for (int i = 0; i < options.recipients + 2; ++i) {
        good = good && wire.reply();
    }
    std::string text = "From: <" + bench::kSender +
                       ">\r\nTo: <user0@example.com>\r\n"
                       "Subject: Benchmark\r\nMIME-Version: 1.0\r\n";
    if (options.attachment.empty()) {
        text += "Content-Type: text/html; charset=utf-8\r\n\r\n" + html;
        return good && wire.send(text + ".\r\n") && wire.reply();
    }
    text +=
        "Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n"
        "Content-Type: text/html; charset=utf-8\r\n\r\n" +
        html +
        "\r\n--b\r\nContent-Type: application/octet-stream\r\n"
        "Content-Transfer-Encoding: base64\r\n\r\n";
    return good && wire.send(text) && sendFile(wire, options.attachment) &&
           wire.send("\r\n--b--\r\n.\r\n") && wire.reply();
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options = bench::parse(argc, argv);
    const std::string html = bench::readFile(options.html);
    Wire wire;
    bool open = false;
    if (!options.connect.empty()) {
        return bench::measure(options, [&] {
            const bool good = wire.open(options) && wire.send("QUIT\r\n") && wire.reply();
            if (options.connect == "resumed") wire.keepSession();
            wire.close();
            return good;
        });
    }
    return bench::measure(options, [&] {
        open = open || wire.open(options);
        const bool sent = open && sendMessage(wire, options, html);
        if (!sent) std::fprintf(stderr, "the floor client failed\n");
        return sent;
    });
}
