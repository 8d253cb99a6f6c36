// Chains that OpenSSL made, each with one thing wrong, and the rule that must catch it. OpenSSL's
// own verdict stands beside ours.
#include "net/x509/X509Chain.h"

#include <gtest/gtest.h>
#include <openssl/conf.h>
#include <openssl/evp.h>
#include <openssl/x509v3.h>

#include <functional>
#include <map>
#include <memory>
#include <sstream>

#include "net/x509/X509Name.h"

namespace tv::x509 {
namespace {

constexpr int64_t kNow = 1795254300;  // 2026-11-21
constexpr int64_t kDay = 86400;

using Der = std::vector<uint8_t>;

struct Spec {
    std::string subject;
    std::string issuer;
    std::string key;     // of the certificate, by name
    std::string signer;  // key that signs, by name
    // NID and value as in a config file, sections of it that the value names behind a line break
    std::vector<std::pair<int, std::string>> extensions;
    int64_t notBefore = kNow - kDay;
    int64_t notAfter = kNow + kDay;
    const EVP_MD* digest = EVP_sha256();
    bool pss = false;
    Der pssKey = {};  // the key is named one for RSASSA-PSS, with these parameters
};

EVP_PKEY* keyNamed(const std::string& name) {
    static auto& keys = *new std::map<std::string, EVP_PKEY*>;  // until the process ends
    EVP_PKEY*& key = keys[name];
    if (!key) {
        key = name.rfind("rsa512", 0) == 0 ? EVP_RSA_gen(512)
              : name.rfind("rsa", 0) == 0  ? EVP_RSA_gen(2048)
              : name.rfind("p384", 0) == 0 ? EVP_EC_gen("P-384")
              : name.rfind("p521", 0) == 0 ? EVP_EC_gen("P-521")
                                           : EVP_EC_gen("P-256");
    }
    return key;
}

// The common name and, behind line breaks, e-mail addresses. "T61:" in front asks for that string
// type, else it is UTF8String.
void setName(X509_NAME* name, const std::string& text) {
    const bool isT61 = text.rfind("T61:", 0) == 0;
    std::istringstream lines(isT61 ? text.substr(4) : text);
    const char* field = "CN";
    for (std::string value; std::getline(lines, value); field = "emailAddress") {
        X509_NAME_add_entry_by_txt(name, field, isT61 ? V_ASN1_T61STRING : V_ASN1_UTF8STRING,
                                   reinterpret_cast<const unsigned char*>(value.data()),
                                   static_cast<int>(value.size()), -1, 0);
    }
}

using CertificateOwner = std::unique_ptr<X509, decltype(&X509_free)>;

X509_EXTENSION* makeExtension(X509* cert, int nid, const std::string& text) {
    const size_t lineEnd = text.find('\n');
    const std::string sections = lineEnd == std::string::npos ? "" : text.substr(lineEnd + 1);
    CONF* config = NCONF_new(nullptr);
    BIO* bio = BIO_new_mem_buf(sections.data(), static_cast<int>(sections.size()));
    NCONF_load_bio(config, bio, nullptr);
    X509V3_CTX context;
    X509V3_set_ctx(&context, cert, cert, nullptr, nullptr, 0);
    X509V3_set_nconf(&context, config);
    X509_EXTENSION* made =
        X509V3_EXT_nconf_nid(config, &context, nid, text.substr(0, lineEnd).c_str());
    BIO_free(bio);
    NCONF_free(config);
    EXPECT_NE(made, nullptr) << text;
    return made;
}

Der make(const Spec& s) {
    const CertificateOwner cert(X509_new(), X509_free);
    X509_set_version(cert.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), 7);
    ASN1_TIME_set(X509_getm_notBefore(cert.get()), s.notBefore);
    ASN1_TIME_set(X509_getm_notAfter(cert.get()), s.notAfter);
    setName(X509_get_subject_name(cert.get()), s.subject);
    setName(X509_get_issuer_name(cert.get()), s.issuer);
    X509_set_pubkey(cert.get(), keyNamed(s.key));
    if (!s.pssKey.empty()) {
        X509_ALGOR* algorithm = nullptr;
        X509_PUBKEY_get0_param(nullptr, nullptr, nullptr, &algorithm,
                               X509_get_X509_PUBKEY(cert.get()));
        ASN1_STRING* value = ASN1_STRING_new();
        ASN1_STRING_set(value, s.pssKey.data(), static_cast<int>(s.pssKey.size()));
        X509_ALGOR_set0(algorithm, OBJ_nid2obj(NID_rsassaPss), V_ASN1_SEQUENCE, value);
    }
    for (const auto& [nid, value] : s.extensions) {
        X509_EXTENSION* extension = makeExtension(cert.get(), nid, value);
        X509_add_ext(cert.get(), extension, -1);
        X509_EXTENSION_free(extension);
    }
    EVP_MD_CTX* md = EVP_MD_CTX_new();
    EVP_PKEY_CTX* parameters = nullptr;
    EVP_DigestSignInit(md, &parameters, s.digest, nullptr, keyNamed(s.signer));
    if (s.pss) {
        EVP_PKEY_CTX_set_rsa_padding(parameters, RSA_PKCS1_PSS_PADDING);
        EVP_PKEY_CTX_set_rsa_pss_saltlen(parameters, RSA_PSS_SALTLEN_DIGEST);
    }
    EXPECT_GT(X509_sign_ctx(cert.get(), md), 0);
    EVP_MD_CTX_free(md);
    unsigned char* out = nullptr;
    const int size = i2d_X509(cert.get(), &out);
    Der der(out, out + size);
    OPENSSL_free(out);
    return der;
}

// What OpenSSL says of it.
bool peerTrusts(const std::vector<Der>& chain, const std::vector<Der>& roots,
                const std::string& host) {
    const auto read = [](const Der& der) {
        const unsigned char* at = der.data();
        return CertificateOwner(d2i_X509(nullptr, &at, static_cast<long>(der.size())), X509_free);
    };
    X509_STORE* store = X509_STORE_new();
    for (const Der& der : roots) {
        X509_STORE_add_cert(store, read(der).get());
    }
    STACK_OF(X509)* sent = sk_X509_new_null();
    for (const Der& der : chain) {
        if (CertificateOwner c = read(der)) sk_X509_push(sent, c.release());
    }
    X509_STORE_CTX* context = X509_STORE_CTX_new();
    X509_STORE_CTX_init(context, store, sk_X509_value(sent, 0), sent);
    X509_VERIFY_PARAM* rules = X509_STORE_CTX_get0_param(context);
    X509_VERIFY_PARAM_set_time(rules, kNow);
    X509_VERIFY_PARAM_set_purpose(rules, X509_PURPOSE_SSL_SERVER);
    X509_VERIFY_PARAM_set_auth_level(rules, 1);
    X509_VERIFY_PARAM_set_flags(rules, X509_V_FLAG_PARTIAL_CHAIN);
    if (X509_VERIFY_PARAM_set1_ip_asc(rules, host.c_str()) != 1) {
        X509_VERIFY_PARAM_set1_host(rules, host.data(), host.size());
    }
    const bool trusted = X509_verify_cert(context) == 1;
    X509_STORE_CTX_free(context);
    sk_X509_pop_free(sent, X509_free);
    X509_STORE_free(store);
    return trusted;
}

// A good chain of three, to be spoilt.
struct Chain {
    Spec root{
        "Root",
        "Root",
        "rootkey",
        "rootkey",
        {{NID_basic_constraints, "critical,CA:TRUE"}, {NID_key_usage, "critical,keyCertSign"}}};
    Spec middle{"Middle",
                "Root",
                "p384middle",
                "rootkey",
                {{NID_basic_constraints, "critical,CA:TRUE"},
                 {NID_key_usage, "critical,keyCertSign"},
                 {NID_subject_key_identifier, "hash"}}};
    Spec leaf{"mail.example.com",
              "Middle",
              "rsaleaf",
              "p384middle",
              {{NID_subject_alt_name, "DNS:mail.example.com,IP:127.0.0.1"},
               {NID_ext_key_usage, "serverAuth"},
               {NID_key_usage, "critical,digitalSignature"}}};
    std::string host = "mail.example.com";
    std::vector<Spec> extras;
    std::vector<Spec> refused;  // by the system
    bool sendMiddle = true;
    bool trustRoot = true;

    std::vector<Der> sent() const {
        std::vector<Der> ders = {make(leaf)};
        for (const Spec& extra : extras) {
            ders.push_back(make(extra));
        }
        if (sendMiddle) ders.push_back(make(middle));
        return ders;
    }
    std::vector<Der> roots() const {
        return trustRoot ? std::vector<Der>{make(root)} : std::vector<Der>{};
    }
    ChainVerdict judge(const std::vector<Der>& ders, WorkBudget& budget) const {
        const std::vector<Bytes> views(ders.begin(), ders.end());
        std::vector<Der> disallowed;
        for (const Spec& spec : refused) {
            disallowed.push_back(make(spec));
        }
        const CertificateSet anchors(roots()), disallowedSet(disallowed);
        return verifyChain(views, {host, kNow, anchors, disallowedSet}, budget);
    }
    ChainVerdict judge() const {
        WorkBudget budget;
        return judge(sent(), budget);
    }
};

void replace(Spec& spec, int nid, const std::string& value) {
    for (auto& extension : spec.extensions) {
        if (extension.first == nid) extension.second = value;
    }
}

// The root's key says that it signs with one hash (the last byte of its identifier) and at least so
// much salt; the signature has SHA-256 and 32 bytes.
void bindRootKey(Chain& c, uint8_t hash, uint8_t salt) {
    c.root.key = c.root.signer = c.middle.signer = "rsaroot";
    c.root.pss = c.middle.pss = true;
    c.root.pssKey = {0x30, 0x34, 0xA0, 0x0F, 0x30, 0x0D, 0x06, 0x09, 0x60, 0x86, 0x48,
                     0x01, 0x65, 0x03, 0x04, 0x02, hash, 0x05, 0x00, 0xA1, 0x1C, 0x30,
                     0x1A, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01,
                     0x08, 0x30, 0x0D, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03,
                     0x04, 0x02, hash, 0x05, 0x00, 0xA2, 0x03, 0x02, 0x01, salt};
}

void constrain(Spec& spec, const std::string& names) {
    spec.extensions.push_back({NID_name_constraints, names});
}

struct Case {
    const char* name;
    ChainRule expected;
    std::function<void(Chain&)> spoil;
    bool peerAgrees = true;
    const char* detail = "";  // the end of it
};
constexpr bool kPeerDiffers = false;

class Chains : public testing::TestWithParam<Case> {};

TEST_P(Chains, AreJudgedByTheRule) {
    Chain chain;
    GetParam().spoil(chain);
    const std::vector<Der> sent = chain.sent();
    WorkBudget budget;
    const ChainVerdict verdict = chain.judge(sent, budget);
    EXPECT_EQ(verdict.broken, GetParam().expected)
        << ruleText(verdict.broken) << " " << verdict.subject << " " << verdict.detail;
    EXPECT_TRUE(verdict.detail.ends_with(GetParam().detail)) << verdict.detail;
    EXPECT_EQ(peerTrusts(sent, chain.roots(), chain.host) == verdict.trusted(),
              GetParam().peerAgrees);
}

const Case kCases[] = {
    {"Good", ChainRule::None, [](Chain&) {}},
    {"GoodAddress", ChainRule::None, [](Chain& c) { c.host = "127.0.0.1"; }},
    {"GoodWithExtras", ChainRule::None,
     [](Chain& c) {
         c.extras = {c.root, {"Other", "Other", "other", "other", {}}};
     }},
    {"GoodCrossSign", ChainRule::None,
     [](Chain& c) {
         // The same name and key, issued by a root that nobody knows: it must not mislead.
         Spec cross = c.middle;
         cross.issuer = "Unknown Root";
         cross.signer = "unknown";
         c.extras = {cross};
     },
     kPeerDiffers},  // which tries one issuer and no other
    {"GoodPss", ChainRule::None,
     [](Chain& c) {
         c.root.key = c.root.signer = "rsaroot";
         c.middle.signer = "rsaroot";
         c.middle.pss = true;
     }},
    {"GoodPssKey", ChainRule::None, [](Chain& c) { bindRootKey(c, 1, 32); }},
    {"PssKeyForAnotherHash", ChainRule::BadSignature, [](Chain& c) { bindRootKey(c, 2, 32); }},
    {"PssKeyForMoreSalt", ChainRule::BadSignature, [](Chain& c) { bindRootKey(c, 1, 33); }},
    {"PssKeyOfUnknownHash", ChainRule::WeakKey, [](Chain& c) { bindRootKey(c, 9, 32); }},
    {"GoodSha1AnchorSelfSignature", ChainRule::None, [](Chain& c) { c.root.digest = EVP_sha1(); }},
    {"GoodCommonName", ChainRule::None,
     [](Chain& c) { c.leaf.extensions.erase(c.leaf.extensions.begin()); }},
    {"Expired", ChainRule::Expired, [](Chain& c) { c.leaf.notAfter = kNow - 1; }},
    {"NotYetValid", ChainRule::NotYetValid, [](Chain& c) { c.leaf.notBefore = kNow + 1; }},
    {"ExpiredMiddle", ChainRule::Expired, [](Chain& c) { c.middle.notAfter = kNow - 1; }},
    {"ExpiredRoot", ChainRule::Expired, [](Chain& c) { c.root.notAfter = kNow - 1; }},
    {"OtherHost", ChainRule::HostMismatch, [](Chain& c) { c.host = "smtp.example.com"; }, true,
     "smtp.example.com is none of: mail.example.com"},
    {"OtherAddress", ChainRule::HostMismatch,
     [](Chain& c) {
         c.host = "127.0.0.2";
         replace(c.leaf, NID_subject_alt_name, "DNS:a.test,IP:127.0.0.1,IP:2001:db8::5");
     },
     true, "127.0.0.2 is none of: 127.0.0.1, 2001:db8:0:0:0:0:0:5"},
    {"AddressBesideNames", ChainRule::HostMismatch,
     [](Chain& c) {
         c.host = "127.0.0.1";
         replace(c.leaf, NID_subject_alt_name, "DNS:127.0.0.1");
     },
     true, "127.0.0.1: the certificate names no IP address"},
    {"AddressBesideACommonName", ChainRule::HostMismatch,
     [](Chain& c) {
         c.host = "::1";
         c.leaf.extensions.erase(c.leaf.extensions.begin());
     },
     true, "::1: the certificate names no IP address"},
    {"CommonNameDoesNotCount", ChainRule::HostMismatch,
     [](Chain& c) { replace(c.leaf, NID_subject_alt_name, "DNS:other.example.com"); }},
    {"CommonNameBesideEmail", ChainRule::HostMismatch,
     [](Chain& c) { replace(c.leaf, NID_subject_alt_name, "email:anna@example.com"); },
     kPeerDiffers},  // which looks at the common name where no name is of the host's kind
    {"CommonNameBesideAddress", ChainRule::HostMismatch,
     [](Chain& c) { replace(c.leaf, NID_subject_alt_name, "IP:127.0.0.1"); }, kPeerDiffers,
     "mail.example.com: the certificate names no host"},
    {"CommonNameBesideUri", ChainRule::HostMismatch,
     [](Chain& c) { replace(c.leaf, NID_subject_alt_name, "URI:https://other.test/"); },
     kPeerDiffers},
    {"CommonNameBesideDirectory", ChainRule::HostMismatch,
     [](Chain& c) { replace(c.leaf, NID_subject_alt_name, "dirName:d\n[d]\nCN=x"); }, kPeerDiffers},
    {"ClientOnly", ChainRule::NotForServers,
     [](Chain& c) { replace(c.leaf, NID_ext_key_usage, "clientAuth"); }},
    {"LeafMayOnlySignCertificates", ChainRule::NotForServers,
     [](Chain& c) { replace(c.leaf, NID_key_usage, "critical,keyCertSign"); }},
    {"MiddleIsNoAuthority", ChainRule::NotAnAuthority,
     [](Chain& c) { replace(c.middle, NID_basic_constraints, "critical,CA:FALSE"); }},
    {"MiddleMayNotSign", ChainRule::MayNotSign,
     [](Chain& c) { replace(c.middle, NID_key_usage, "critical,digitalSignature"); }},
    {"PathTooLong", ChainRule::PathTooLong,
     [](Chain& c) { replace(c.root, NID_basic_constraints, "critical,CA:TRUE,pathlen:0"); }},
    {"WrongSignature", ChainRule::BadSignature, [](Chain& c) { c.leaf.signer = "p384other"; }},
    {"WrongRootSignature", ChainRule::BadSignature, [](Chain& c) { c.middle.signer = "other"; }},
    {"Sha1", ChainRule::WeakSignature, [](Chain& c) { c.leaf.digest = EVP_sha1(); }},
    {"ShortKey", ChainRule::WeakKey, [](Chain& c) { c.leaf.key = "rsa512"; }},
    {"MissingMiddle", ChainRule::UnknownIssuer, [](Chain& c) { c.sendMiddle = false; }},
    {"NoAnchor", ChainRule::UnknownIssuer, [](Chain& c) { c.trustRoot = false; }},
    {"ExpiredTwinOfTheMiddle", ChainRule::UnknownIssuer,
     [](Chain& c) {
         c.extras = {c.middle};
         c.extras[0].notAfter = kNow - 1;
         c.trustRoot = false;
     }},
    {"NamesakeOfAnExpiredMiddle", ChainRule::Expired,
     [](Chain& c) {
         c.extras = {c.middle};
         c.extras[0].key = "p384other";
         c.middle.notAfter = kNow - 1;
     }},
    {"NamesakeOfAMiddleFromNobody", ChainRule::UnknownIssuer,
     [](Chain& c) {
         c.extras = {c.middle};
         c.extras[0].key = "p384other";
         c.trustRoot = false;
     }},
    {"ExpiredRootBesideAnUnknownOne", ChainRule::Expired,
     [](Chain& c) {
         c.extras = {c.middle};
         c.extras[0].issuer = "Unknown Root";
         c.root.notAfter = kNow - 1;
     }},
    {"ExpiredMiddleBesideACrossFromNobody", ChainRule::Expired,
     [](Chain& c) {
         c.extras = {c.middle};
         c.extras[0].issuer = "Unknown Root";
         c.extras[0].signer = "unknown";
         c.middle.notAfter = kNow - 1;
     }},
    {"SixtyStrangers", ChainRule::None,
     [](Chain& c) {
         c.extras.assign(60, {"Other", "Other", "other", "other", {}});
     }},
    {"SelfSignedLeaf", ChainRule::UnknownIssuer,
     [](Chain& c) {
         c.leaf.issuer = c.leaf.subject;
         c.leaf.signer = c.leaf.key;
     }},
    {"OutsidePermitted", ChainRule::NameConstraint,
     [](Chain& c) { constrain(c.middle, "permitted;DNS:example.org"); }},
    {"CommonNameOutsidePermitted", ChainRule::NameConstraint,
     [](Chain& c) {
         c.leaf.extensions.erase(c.leaf.extensions.begin());
         constrain(c.root, "permitted;DNS:example.org");
     }},
    {"NameOfAnIntermediateIsNoHost", ChainRule::None,
     [](Chain& c) {
         c.middle.subject = c.leaf.issuer = "Issuing CA 1";
         constrain(c.root, "permitted;DNS:example.com");
     }},
    {"InsideExcluded", ChainRule::NameConstraint,
     [](Chain& c) { constrain(c.root, "critical,excluded;DNS:example.com"); }},
    {"InsidePermitted", ChainRule::None,
     [](Chain& c) { constrain(c.middle, "critical,permitted;DNS:example.com"); }},
    {"HostExcludedBehindAWildcard", ChainRule::NameConstraint,
     [](Chain& c) {
         c.host = "secret.example.com";
         replace(c.leaf, NID_subject_alt_name, "DNS:*.example.com");
         constrain(c.root, "excluded;DNS:secret.example.com");
     },
     kPeerDiffers},  // which looks at the names of the certificate alone
    {"HostBehindAWildcardBesideAnExcludedOne", ChainRule::None,
     [](Chain& c) {
         c.host = "open.example.com";
         replace(c.leaf, NID_subject_alt_name, "DNS:*.example.com");
         constrain(c.root, "excluded;DNS:secret.example.com");
     }},
    {"SubdomainsOnly", ChainRule::NameConstraint,
     [](Chain& c) { constrain(c.middle, "permitted;DNS:.mail.example.com"); }},
    {"PermittedBaseThatIsNoName", ChainRule::NameConstraint,
     [](Chain& c) { constrain(c.middle, "permitted;DNS:*.example.com"); }},
    {"ExcludedBaseThatIsNoName", ChainRule::NameConstraint,
     [](Chain& c) { constrain(c.middle, "excluded;DNS:*.other.test"); }, kPeerDiffers},
    {"IssuerInOtherLetters", ChainRule::None,
     [](Chain& c) {
         c.middle.subject = "K\u00f6z\u00e9p  Ny\u00edl";
         c.leaf.issuer = "T61: k\xf6Z\xe9p NY\xedL ";
     }},
    {"ExcludedDirectoryInOtherLetters", ChainRule::NameConstraint,
     [](Chain& c) { constrain(c.middle, "excluded;dirName:d\n[d]\nCN=MAIL.Example.com "); }},
    {"PermittedDirectoryInOtherLetters", ChainRule::None,
     [](Chain& c) { constrain(c.middle, "permitted;dirName:d\n[d]\nCN=MAIL.Example.com "); }},
    {"EmailOutsidePermitted", ChainRule::NameConstraint,
     [](Chain& c) {
         replace(c.leaf, NID_subject_alt_name, "DNS:mail.example.com,email:a@b.test");
         constrain(c.middle, "permitted;email:example.com");
     }},
    {"EmailInsidePermitted", ChainRule::None,
     [](Chain& c) {
         replace(c.leaf, NID_subject_alt_name, "DNS:mail.example.com,email:a@Example.com");
         constrain(c.middle, "permitted;email:example.com");
     }},
    {"EveryEmailOfTheSubject", ChainRule::NameConstraint,
     [](Chain& c) {
         c.leaf.extensions.erase(c.leaf.extensions.begin());
         c.leaf.subject += "\na@b.test\na@example.com";
         constrain(c.middle, "permitted;email:example.com");
     }},
    {"UriUnderEmailConstraint", ChainRule::None,
     [](Chain& c) {
         replace(c.leaf, NID_subject_alt_name, "DNS:mail.example.com,URI:https://b.test/");
         constrain(c.middle, "excluded;email:b.test");
     }},
    {"UriInsideExcluded", ChainRule::NameConstraint,
     [](Chain& c) {
         replace(c.leaf, NID_subject_alt_name, "DNS:mail.example.com,URI:https://B.test:8/");
         constrain(c.middle, "excluded;URI:b.test");
     }},
    {"KindThatCannotBeJudged", ChainRule::NameConstraint,
     [](Chain& c) {
         replace(c.leaf, NID_subject_alt_name, "DNS:mail.example.com,otherName:1.2.3;UTF8:x");
         constrain(c.middle, "excluded;otherName:1.2.3;UTF8:y");
     }},
    {"KindThatCannotBeJudgedAndIsNotThere", ChainRule::None,
     [](Chain& c) {
         replace(c.leaf, NID_subject_alt_name, "DNS:mail.example.com,RID:1.2.3");
         constrain(c.middle, "excluded;otherName:1.2.3;UTF8:y");
     }},
    {"ConstraintsInALeaf", ChainRule::BadConstraints,
     [](Chain& c) { constrain(c.leaf, "permitted;DNS:example.com"); }, kPeerDiffers},
    {"EmptyConstraints", ChainRule::BadConstraints,
     [](Chain& c) { constrain(c.middle, "DER:30:00"); }, kPeerDiffers},
    {"EmptyListOfConstraints", ChainRule::BadConstraints,
     [](Chain& c) { constrain(c.middle, "DER:30:02:A0:00"); }, kPeerDiffers},
    {"ExplicitMinimumOfConstraints", ChainRule::None,
     [](Chain& c) { constrain(c.middle, "DER:30:0C:A0:0A:30:08:82:03:63:6F:6D:80:01:00"); }},
    {"DisallowedLeaf", ChainRule::Disallowed, [](Chain& c) { c.refused = {c.leaf}; },
     kPeerDiffers},  // which is told of anchors alone
    {"DisallowedMiddle", ChainRule::Disallowed, [](Chain& c) { c.refused = {c.middle}; },
     kPeerDiffers},
    {"DisallowedRoot", ChainRule::Disallowed, [](Chain& c) { c.refused = {c.root}; }, kPeerDiffers},
    {"DisallowedTwinOfTheMiddle", ChainRule::None,
     [](Chain& c) {
         c.extras = {c.middle};
         c.extras[0].notAfter -= 1;
         c.refused = c.extras;
     }},
    {"UnknownCritical", ChainRule::UnknownCritical,
     [](Chain& c) {
         c.leaf.extensions.push_back({NID_inhibit_any_policy, "critical,0"});
     },
     kPeerDiffers},  // which understands it
    {"ExplicitlyNoAuthority", ChainRule::None,
     [](Chain& c) {
         c.leaf.extensions.push_back({NID_basic_constraints, "critical,DER:30:03:01:01:00"});
     }},
    {"CriticalPolicies", ChainRule::None,
     [](Chain& c) {
         c.leaf.extensions.push_back(
             {NID_certificate_policies,
              "critical,1.2.3,@p\n[p]\npolicyIdentifier=1.2.4\nCPS.1=https://x.test/"});
     }},
    {"CriticalPoliciesWithUnknownQualifier", ChainRule::UnknownCritical,
     [](Chain& c) {
         c.leaf.extensions.push_back(
             {NID_certificate_policies,
              "critical,DER:30:0E:30:0C:06:01:2A:30:07:30:05:06:01:2B:05:00"});
     },
     kPeerDiffers},  // which looks at no qualifier
    {"UnknownNotCritical", ChainRule::None,
     [](Chain& c) {
         c.leaf.extensions.push_back({NID_netscape_comment, "harmless"});
     }},
};

INSTANTIATE_TEST_SUITE_P(X509, Chains, testing::ValuesIn(kCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(Chains, EveryChangedByteIsNoticed) {
    Chain chain;
    const Der leaf = make(chain.leaf), middle = make(chain.middle);
    const CertificateSet anchors(chain.roots());
    for (size_t i = 0; i < leaf.size(); ++i) {
        for (const int bit : {0x01, 0x80}) {
            Der changed = leaf;
            changed[i] = static_cast<uint8_t>(changed[i] ^ bit);
            const std::vector<Bytes> views = {changed, middle};
            WorkBudget budget;
            EXPECT_FALSE(verifyChain(views, {chain.host, kNow, anchors, {}}, budget).trusted())
                << i;
        }
    }
}

TEST(Chains, TruncatedCertificatesAreUnreadable) {
    const Der leaf = make(Chain().leaf);
    for (size_t size = 0; size < leaf.size(); ++size) {
        Certificate certificate;
        EXPECT_FALSE(parseCertificate(Bytes(leaf).first(size), certificate)) << size;
    }
}

// "DNS:", a number and so on, so many times.
std::string manyNames(const std::string& start, int count, const std::string& end) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += (i ? "," : "") + start + std::to_string(i) + end;
    }
    return text;
}

const std::string kManyNames =
    manyNames("DNS:some-forty-letters-and-a-number-", 990, ".example.com");

// Levels of nine authorities of one name and key each between the leaf and the root; those of one
// level may name no e-mail address of another host, but the leaf has one.
void addLevels(Chain& c, int levels, int constrained) {
    const auto named = [&](int i) { return i > levels ? "Root" : "Level " + std::to_string(i); };
    const auto keyOf = [&](int i) { return i > levels ? "rootkey" : named(i); };
    c.sendMiddle = false;
    c.leaf.issuer = c.leaf.signer = named(1);
    for (int i = 0; i < 9 * levels; ++i) {
        const int level = i / 9 + 1;
        c.extras.push_back(c.root);
        Spec& extra = c.extras.back();
        extra.subject = extra.key = named(level);
        extra.issuer = named(level + 1);
        extra.signer = keyOf(level + 1);
        extra.notAfter += i;
        if (level == constrained) constrain(extra, "permitted;email:example.com");
    }
}

const struct {
    const char* name;
    ChainRule expected;
    uint64_t mostUnits;
    void (*spoil)(Chain&);
} kWork[] = {
    {"an honest chain", ChainRule::None, 20000, [](Chain&) {}},
    {"two authorities that issued each other, many times over", ChainRule::UnknownIssuer, 300000,
     [](Chain& c) {
         c.trustRoot = false;
         for (int i = 0; i < 31; ++i) {
             Spec root = c.root;
             root.issuer = "Middle";
             root.signer = "p384middle";
             root.notAfter += i;
             c.middle.notAfter += i;
             c.extras.insert(c.extras.end(), {root, c.middle});
         }
     }},
    {"namesakes with dear keys", ChainRule::TooMuchWork, WorkBudget::kUnits,
     [](Chain& c) {
         for (int i = 0; i < 30; ++i) {
             c.extras.push_back(c.middle);
             c.extras.back().key = "p521 " + std::to_string(i);
         }
     }},
    {"a forged leaf and many constraints", ChainRule::BadSignature, 20000,
     [](Chain& c) {
         replace(c.leaf, NID_subject_alt_name,
                 "DNS:mail.example.com," + manyNames("DNS:n", 900, ".example.com"));
         constrain(c.middle, manyNames("excluded;DNS:x", 900, ".example.com"));
         c.leaf.signer = "p384other";
     }},
    {"many names and many constraints", ChainRule::TooMuchWork, WorkBudget::kUnits,
     [](Chain& c) {
         replace(c.leaf, NID_subject_alt_name, "DNS:mail.example.com," + kManyNames);
         constrain(c.middle, manyNames("excluded;DNS:other-forty-letters-and-a-number-", 900,
                                       ".example.com"));
     }},
    {"millions of paths over a broken constraint", ChainRule::NameConstraint, 150000,
     [](Chain& c) {
         replace(c.leaf, NID_subject_alt_name, "email:a@b.test,DNS:mail.example.com," + kManyNames);
         addLevels(c, 7, 1);
     }},
    {"hundreds of paths to a few broken constraints", ChainRule::NameConstraint, 250000,
     [](Chain& c) {
         replace(c.leaf, NID_subject_alt_name,
                 "DNS:mail.example.com," + kManyNames + ",email:a@b.test");
         addLevels(c, 3, 3);
     }},
};

TEST(Chains, TakeAsMuchWorkAsIsGranted) {
    for (const auto& row : kWork) {
        Chain chain;
        row.spoil(chain);
        WorkBudget budget;
        EXPECT_EQ(chain.judge(chain.sent(), budget).broken, row.expected) << row.name;
        EXPECT_LE(budget.spent(), row.mostUnits) << row.name;
    }
}

TEST(Chains, AreLeftWhenTheCallerHasNoTime) {
    for (const int questions : {0, 1, 3}) {
        Chain chain;
        kWork[2].spoil(chain);
        int asked = 0;
        WorkBudget budget([&] { return asked++ < questions ? 1 : 0; });
        EXPECT_EQ(chain.judge(chain.sent(), budget).broken, ChainRule::Stopped);
        EXPECT_EQ(asked, questions + 1);
    }
}

TEST(Chains, NamesAreShown) {
    Certificate c;
    const Der der = make(Chain().leaf);
    ASSERT_TRUE(parseCertificate(der, c));
    EXPECT_EQ(nameText(c.subject), "CN=mail.example.com");
    EXPECT_EQ(nameText(c.issuer), "CN=Middle");
}

}  // namespace
}  // namespace tv::x509
