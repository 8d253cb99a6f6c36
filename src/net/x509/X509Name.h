// Distinguished names: compared as the bytes they are, and shown in a log.
#pragma once

#include <string>

#include "net/x509/DerReader.h"

namespace tv::x509 {

// "CN=mail.example.com, O=Example" in the order of the certificate; what cannot be shown as text is
// shown as "?". For people, never for decisions.
std::string nameText(Bytes name);

// The last common name, as bytes; empty where there is none.
Bytes commonName(Bytes name);

}  // namespace tv::x509
