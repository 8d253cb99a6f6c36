// The certificate of the self-test's own server. Its key is public: it stands in this program.
#pragma once

namespace selftest {

// Signed by itself, for 127.0.0.1, from 2000 to 2100.
extern const char* const kServerCertificate;  // PEM

}  // namespace selftest
