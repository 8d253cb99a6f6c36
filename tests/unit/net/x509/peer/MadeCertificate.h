// Certificates that OpenSSL makes, field by field as a test wants them.
#pragma once

#include <gtest/gtest.h>
#include <openssl/conf.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509v3.h>

#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace tv::x509::peer {

using Der = std::vector<uint8_t>;

constexpr int64_t kNow = 1795254300;  // 2026-11-21
constexpr int64_t kDay = 86400;

struct Spec {
    std::string subject, issuer;
    std::string key, signer;  // by name
    // By NID, as in a config file; sections of it that the value names behind a line break.
    std::map<int, std::string> extensions;
    int64_t notBefore = kNow - kDay, notAfter = kNow + kDay;
    const EVP_MD* hash = EVP_sha256();  // of the signature; null for Ed25519
    bool pss = false;
    Der pssKey = {};               // the key is named one for RSASSA-PSS, with these parameters
    EVP_PKEY* otherKey = nullptr;  // in place of the certificate's
};

// A key that lasts until the process ends; "RSA-2048 x", "P-384", "ED25519", and P-256 where no
// kind is named.
inline EVP_PKEY* keyNamed(const std::string& name) {
    static auto& keys = *new std::map<std::string, EVP_PKEY*>;
    EVP_PKEY*& key = keys[name];
    if (!key && name == "ED25519") key = EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
    if (!key && name.starts_with("RSA-")) key = EVP_RSA_gen(std::stoul(name.substr(4)));
    if (!key) key = EVP_EC_gen(name.substr(0, name.find(' ')).c_str());
    if (!key) key = EVP_EC_gen("P-256");
    ERR_clear_error();
    return key;
}

// The common name and, behind line breaks, e-mail addresses. "T61:" in front asks for that string
// type, else it is UTF8String.
inline void setName(X509_NAME* name, const std::string& text) {
    const bool isT61 = text.starts_with("T61:");
    std::istringstream lines(isT61 ? text.substr(4) : text);
    const char* field = "CN";
    for (std::string value; std::getline(lines, value); field = "emailAddress") {
        X509_NAME_add_entry_by_txt(name, field, isT61 ? V_ASN1_T61STRING : V_ASN1_UTF8STRING,
                                   reinterpret_cast<const unsigned char*>(value.data()),
                                   static_cast<int>(value.size()), -1, 0);
    }
}

using CertificateOwner = std::unique_ptr<X509, decltype(&X509_free)>;

inline void addExtension(X509* cert, int nid, const std::string& text) {
    const size_t lineEnd = std::min(text.find('\n'), text.size());
    const std::string value = text.substr(0, lineEnd), sections = text.substr(lineEnd);
    CONF* config = NCONF_new(nullptr);
    BIO* bio = BIO_new_mem_buf(sections.data(), static_cast<int>(sections.size()));
    NCONF_load_bio(config, bio, nullptr);
    X509V3_CTX context;
    X509V3_set_ctx(&context, cert, cert, nullptr, nullptr, 0);
    X509V3_set_nconf(&context, config);
    X509_EXTENSION* made = X509V3_EXT_nconf_nid(config, &context, nid, value.c_str());
    EXPECT_EQ(X509_add_ext(cert, made, -1), 1) << text;
    X509_EXTENSION_free(made);
    BIO_free(bio);
    NCONF_free(config);
}

inline Der make(const Spec& s) {
    const CertificateOwner cert(X509_new(), X509_free);
    X509_set_version(cert.get(), 2);
    ASN1_TIME_set(X509_getm_notBefore(cert.get()), s.notBefore);
    ASN1_TIME_set(X509_getm_notAfter(cert.get()), s.notAfter);
    setName(X509_get_subject_name(cert.get()), s.subject);
    setName(X509_get_issuer_name(cert.get()), s.issuer);
    X509_set_pubkey(cert.get(), s.otherKey ? s.otherKey : keyNamed(s.key));
    if (!s.pssKey.empty()) {
        X509_ALGOR* algorithm = nullptr;
        X509_PUBKEY_get0_param(nullptr, nullptr, nullptr, &algorithm,
                               X509_get_X509_PUBKEY(cert.get()));
        ASN1_STRING* value = ASN1_STRING_new();
        ASN1_STRING_set(value, s.pssKey.data(), static_cast<int>(s.pssKey.size()));
        X509_ALGOR_set0(algorithm, OBJ_nid2obj(NID_rsassaPss), V_ASN1_SEQUENCE, value);
    }
    for (const auto& [nid, value] : s.extensions) {
        addExtension(cert.get(), nid, value);
    }
    EVP_MD_CTX* md = EVP_MD_CTX_new();
    EVP_PKEY_CTX* parameters = nullptr;
    EVP_DigestSignInit(md, &parameters, s.hash, nullptr, keyNamed(s.signer));
    if (s.pss) {
        EVP_PKEY_CTX_set_rsa_padding(parameters, RSA_PKCS1_PSS_PADDING);
        EVP_PKEY_CTX_set_rsa_pss_saltlen(parameters, RSA_PSS_SALTLEN_DIGEST);
    }
    EXPECT_GT(X509_sign_ctx(cert.get(), md), 0);
    EVP_MD_CTX_free(md);
    Der der(static_cast<size_t>(i2d_X509(cert.get(), nullptr)));
    unsigned char* out = der.data();
    i2d_X509(cert.get(), &out);
    return der;
}

}  // namespace tv::x509::peer
