// Distinguished names: compared by RFC 5280, 7.1, and shown in a log.
#pragma once

#include <string>
#include <vector>

#include "net/x509/DerReader.h"

namespace tv::x509 {

// The form in which names are compared: equal for names that differ in string types, in the case of
// letters or in blanks alone; one name begins with the RDNs of another where its form begins with
// that of the other. False, with out unspecified, where the name is malformed. Letters have the
// case that lowerCodePoint knows; composed and decomposed accents stay different.
bool canonicalName(Bytes name, std::string& out);

// "CN=mail.example.com, O=Example" in the order of the certificate; what cannot be shown as text is
// shown as "?". For people, never for decisions.
std::string nameText(Bytes name);

// The last common name, as bytes; empty where there is none.
Bytes commonName(Bytes name);

// Every e-mail address in a name, as bytes.
std::vector<Bytes> emailAddresses(Bytes name);

}  // namespace tv::x509
