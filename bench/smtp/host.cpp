// The flat exports in the SMTP benchmark, as a host program calls them; a settings file, named by
// the environment, says what they cannot.
#include "Client.h"
#include "emailsending.h"

int main(int argc, char** argv) {
    const bench::Options options = bench::parse(argc, argv);
    const std::string html = bench::readFile(options.html);
    Initialise();
    setSmtpHost("127.0.0.1");
    setSmtpPort(options.port);
    setUseSSL(options.tls == "implicit");
    setStartTls(options.tls == "starttls");
    return bench::measure(options, [&] {
        setFromAddress(bench::kSender.c_str());
        setSubject("Benchmark");
        for (int i = 0; i < options.recipients; ++i)
            setRecipient(bench::recipient(i).c_str());
        setBody(html.c_str());
        setLogo("");
        if (!options.attachment.empty()) setAttachment(options.attachment.c_str());
        const bool sent = szBrisko();
        if (!sent) std::fprintf(stderr, "%s\n", getLastError());
        ResetEmail();
        return sent;
    });
}
