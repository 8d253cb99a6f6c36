// A certificate from outside: read strictly, read for its key alone, matched and judged.
#include "Target.h"
#include "net/x509/HostMatch.h"
#include "net/x509/NameConstraints.h"
#include "net/x509/Pem.h"
#include "net/x509/X509Chain.h"
#include "net/x509/X509Name.h"

void tv::take(Input input) {
    using namespace x509;
    PublicKey key;
    findPublicKey(input, key);
    Certificate certificate;
    WorkBudget work, budget;
    if (parseCertificate(input, certificate)) {
        nameText(certificate.subject);
        matchesHost(certificate, "mail.example.com");
        matchesHost(certificate, "127.0.0.1");
        mayName(certificate, certificate, "mail.example.com", work);
    }
    const Bytes chain[] = {input, input};
    require(!verifyChain(chain, {"mail.example.com", 1795254300, {}, {}}, budget).trusted());
    pemCertificates(textOf(input), 4);
}
