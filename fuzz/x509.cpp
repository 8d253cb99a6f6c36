// A certificate from outside: read strictly, read for its key alone, matched and judged.
#include <cstdint>
#include <vector>

#include "net/x509/HostMatch.h"
#include "net/x509/NameConstraints.h"
#include "net/x509/Pem.h"
#include "net/x509/X509Chain.h"
#include "net/x509/X509Name.h"

using namespace tv::x509;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Bytes der(data, size);
    PublicKey key;
    findPublicKey(der, key);
    Certificate certificate;
    if (parseCertificate(der, certificate)) {
        nameText(certificate.subject);
        matchesHost(certificate, "mail.example.com");
        matchesHost(certificate, "127.0.0.1");
        WorkBudget work;
        mayName(certificate, certificate, "mail.example.com", work);
    }
    const Bytes chain[] = {der, der};
    WorkBudget budget;
    if (verifyChain(chain, {"mail.example.com", 1795254300, {}, {}}, budget).trusted())
        __builtin_trap();
    pemCertificates({reinterpret_cast<const char*>(data), size}, 4);
    return 0;
}
