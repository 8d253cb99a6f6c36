// The server of the SMTP benchmark: accepts everything, throws it away and counts.
//     sink [--tls none|implicit|starttls] [--cert-out FILE] [--key ec|rsa] [--settle-us N]
// Prints its port, then serves one connection after the other, each by a thread; on SIGTERM it
// prints its counts as one line of JSON and ends.
//
// A turn is a round trip: replies have been sent and the client has to be waited for. Replies wait
// until the client has been silent for settle-us, so that pipelining in several small writes is not
// counted as several turns (for counting; 0 is for timing).
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string tlsMode = "none";
std::string certificatePath;
std::string keyKind = "ec";
int settleMicroseconds = 0;
SSL_CTX* context = nullptr;
std::atomic<long> connections, messages, turns, bytesTaken;

class Connection {
public:
    explicit Connection(int fd) : fd_(fd), buffer_(512 * 1024) {}
    ~Connection() {
        SSL_free(tls_);
        close(fd_);
    }

    void serve() {
        ++connections;
        if (tlsMode == "implicit" && !startTls()) return;
        replies_ = "220 sink ESMTP\r\n";
        std::string line;
        while (readLine(line) && command(line)) {
        }
        sendReplies();
    }

private:
    bool startTls() {
        tls_ = SSL_new(context);
        return SSL_set_fd(tls_, fd_) == 1 && SSL_accept(tls_) == 1;
    }

    bool sendReplies() {
        if (replies_.empty()) return true;
        ++turns;  // before the client can know of it, and end
        const auto size = replies_.size();
        const ssize_t sent = tls_ ? SSL_write(tls_, replies_.data(), static_cast<int>(size))
                                  : send(fd_, replies_.data(), size, MSG_NOSIGNAL);
        replies_.clear();
        return sent == static_cast<ssize_t>(size);
    }

    bool clientIsSilent() const {
        if (tls_ && SSL_has_pending(tls_)) return false;
        if (settleMicroseconds == 0) return true;
        pollfd wait{fd_, POLLIN, 0};
        const timespec time{0, settleMicroseconds * 1000L};
        return ppoll(&wait, 1, &time, nullptr) == 0;
    }

    // Takes what is unread to the front of the buffer and reads more behind it.
    bool fill() {
        std::memmove(buffer_.data(), buffer_.data() + at_, end_ - at_);
        end_ -= at_;
        at_ = 0;
        if (end_ == buffer_.size()) return false;
        if (!replies_.empty() && clientIsSilent() && !sendReplies()) return false;
        const auto space = buffer_.size() - end_;
        const ssize_t got = tls_ ? SSL_read(tls_, buffer_.data() + end_, static_cast<int>(space))
                                 : recv(fd_, buffer_.data() + end_, space, 0);
        if (got <= 0) return false;
        end_ += static_cast<size_t>(got);
        return true;
    }

    bool readLine(std::string& line) {
        for (;;) {
            const void* found = std::memchr(buffer_.data() + at_, '\n', end_ - at_);
            if (found) {
                const auto stop =
                    static_cast<size_t>(static_cast<const char*>(found) - buffer_.data());
                line.assign(buffer_.data() + at_, stop - at_);
                at_ = stop + 1;
                return true;
            }
            if (!fill()) return false;
        }
    }

    // The content up to CRLF "." CRLF. Dots are rare in what is sent here, so they are looked for.
    bool skipContent() {
        at_ -= 2;  // the CRLF of the DATA line may be the one before the dot
        for (;;) {
            const size_t size = end_ - at_;
            const void* found =
                size > 4 ? std::memchr(buffer_.data() + at_ + 2, '.', size - 4) : nullptr;
            if (!found) {
                discard(size > 4 ? size - 4 : 0);
                if (!fill()) return false;
                continue;
            }
            const auto* dot = static_cast<const char*>(found);
            const auto before = static_cast<size_t>(dot - buffer_.data()) - at_;
            if (std::memcmp(dot - 2, "\r\n.\r\n", 5) == 0) {
                discard(before + 3);
                return true;
            }
            discard(before - 1);
        }
    }

    void discard(size_t size) {
        bytesTaken += static_cast<long>(size);
        at_ += size;
    }

    bool command(const std::string& line) {
        const auto is = [&](const char* verb) { return strncasecmp(line.c_str(), verb, 4) == 0; };
        if (is("EHLO") || is("HELO")) {
            const bool offer = tlsMode == "starttls" && !tls_;
            replies_ += offer ? "250-sink\r\n250-STARTTLS\r\n250-PIPELINING\r\n250 8BITMIME\r\n"
                              : "250-sink\r\n250-PIPELINING\r\n250 8BITMIME\r\n";
        } else if (is("STAR")) {
            replies_ += "220 go on\r\n";
            return sendReplies() && startTls();
        } else if (is("DATA")) {
            replies_ += "354 go on\r\n";
            if (!skipContent()) return false;
            ++messages;
            replies_ += "250 taken\r\n";
        } else if (is("QUIT")) {
            replies_ += "221 bye\r\n";
            return false;
        } else {
            replies_ += "250 ok\r\n";
        }
        return true;
    }

    int fd_;
    SSL* tls_ = nullptr;
    std::vector<char> buffer_;
    size_t at_ = 0;
    size_t end_ = 0;
    std::string replies_;
};

void addExtension(X509* certificate, int id, const char* value) {
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, id, value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

// A self-signed certificate of an hour for 127.0.0.1.
bool makeContext() {
    EVP_PKEY* key = keyKind == "rsa" ? EVP_RSA_gen(2048) : EVP_EC_gen("P-256");
    X509* certificate = X509_new();
    X509_set_version(certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
    X509_set_pubkey(certificate, key);
    X509_NAME* name = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("localhost"), -1, -1, 0);
    X509_set_issuer_name(certificate, name);
    addExtension(certificate, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1");
    addExtension(certificate, NID_basic_constraints, "critical,CA:TRUE");
    context = SSL_CTX_new(TLS_server_method());
    SSL_CTX_set_read_ahead(context, 1);
    SSL_CTX_set_default_read_buffer_len(context, 256 * 1024);
    bool good = X509_sign(certificate, key, EVP_sha256()) != 0 &&
                SSL_CTX_use_certificate(context, certificate) == 1 &&
                SSL_CTX_use_PrivateKey(context, key) == 1;
    FILE* file = good ? std::fopen(certificatePath.c_str(), "w") : nullptr;
    good = file && PEM_write_X509(file, certificate) == 1;
    if (file) std::fclose(file);
    return good;
}

int listenOnLoopback() {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener, generic, size) != 0 || listen(listener, 64) != 0) return -1;
    getsockname(listener, generic, &size);
    std::printf("%d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    return listener;
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        if (name == "--tls") tlsMode = argv[i + 1];
        if (name == "--key") keyKind = argv[i + 1];
        if (name == "--cert-out") certificatePath = argv[i + 1];
        if (name == "--settle-us") settleMicroseconds = std::atoi(argv[i + 1]);
    }
    sigset_t end;
    sigemptyset(&end);
    sigaddset(&end, SIGTERM);
    sigprocmask(SIG_BLOCK, &end, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    const int signals = signalfd(-1, &end, 0);
    if (tlsMode != "none" && !makeContext()) return 1;
    const int listener = listenOnLoopback();
    if (listener < 0) return 1;
    for (;;) {
        pollfd wait[2] = {{listener, POLLIN, 0}, {signals, POLLIN, 0}};
        poll(wait, 2, -1);
        if (wait[1].revents) break;
        const int fd = accept(listener, nullptr, nullptr);
        const int one = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        std::thread([fd] { Connection(fd).serve(); }).detach();
    }
    std::printf("{\"connections\": %ld, \"messages\": %ld, \"turns\": %ld, \"bytes\": %ld}\n",
                connections.load(), messages.load(), turns.load(), bytesTaken.load());
    std::fflush(stdout);
    _exit(0);  // connections may still be open
}
