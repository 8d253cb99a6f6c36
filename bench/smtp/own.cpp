// Our side of the SMTP benchmark: SendEmail of the internal library, so without the trial
// connection that the plug-in makes before each send.
#include "Client.h"
#include "mail/ClsMailMan.h"
#include "mail/TvMailMan.h"
#include "mime/TvEmail.h"

namespace {

void set(tv::TvMailMan& mailMan, const bench::Options& options) {
    mailMan.put_SmtpHost("127.0.0.1");
    mailMan.put_SmtpPort(options.port);
    mailMan.put_SmtpSsl(options.tls == "implicit");
    mailMan.put_StartTLS(options.tls == "starttls");
    if (options.ca.empty() || options.tls == "none") return;
    mailMan.impl().setProperty("RequireSslCertVerify", 1);
    mailMan.impl().setProperty("TrustAnchorsFile", tv::XString(options.ca));
}

bool report(tv::TvMailMan& mailMan, bool success) {
    if (!success) std::fprintf(stderr, "%s\n", mailMan.LastErrorText().c_str());
    return success;
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options = bench::parse(argc, argv);
    const std::string html = bench::readFile(options.html);
    if (options.connect == "fresh") {
        return bench::measure(options, [&] {
            tv::TvMailMan once;
            set(once, options);
            return report(once, once.impl().VerifySmtpConnection());
        });
    }
    tv::TvMailMan mailMan;
    set(mailMan, options);
    return bench::measure(options, [&] {
        if (!options.connect.empty()) return report(mailMan, mailMan.impl().VerifySmtpConnection());
        tv::TvEmail email;
        email.put_Utf8(true);
        email.put_From(bench::kSender.c_str());
        email.put_Subject("Benchmark");
        for (int i = 0; i < options.recipients; ++i) {
            email.AddTo("", bench::recipient(i).c_str());
        }
        email.SetHtmlBody(html.c_str());
        if (!options.attachment.empty() && !email.AddFileAttachment(options.attachment.c_str())) {
            std::fprintf(stderr, "%s\n", email.LastErrorText().c_str());
            return false;
        }
        return report(mailMan, mailMan.SendEmail(email));
    });
}
