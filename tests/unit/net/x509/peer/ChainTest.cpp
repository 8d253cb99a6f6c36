// Chains that OpenSSL made, each with one thing wrong, and the rule that must catch it. OpenSSL's
// own verdict stands beside ours.
#include "net/x509/X509Chain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "base/Ascii.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/unit/net/x509/peer/MadeCertificate.h"

namespace tv::x509 {
namespace {

using namespace peer;
using enum ChainRule;

std::vector<Der> made(const std::vector<Spec>& specs) {
    std::vector<Der> ders;
    std::ranges::transform(specs, std::back_inserter(ders), make);
    return ders;
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
        sk_X509_push(sent, read(der).release());
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

const std::map<int, std::string> kAuthority = {{NID_basic_constraints, "critical,CA:TRUE"},
                                               {NID_key_usage, "critical,keyCertSign"},
                                               {NID_subject_key_identifier, "hash"}};

// A good chain of three, to be spoilt.
struct Chain {
    Spec root{"Root", "Root", "Root", "Root", kAuthority};
    Spec middle{"Middle", "Root", "P-384 middle", "Root", kAuthority};
    Spec leaf{"mail.example.com",
              "Middle",
              "RSA-2048 leaf",
              "P-384 middle",
              {{NID_subject_alt_name, "DNS:mail.example.com,IP:127.0.0.1"},
               {NID_ext_key_usage, "serverAuth"},
               {NID_key_usage, "critical,digitalSignature"}}};
    std::string host = "mail.example.com";
    std::vector<Spec> extras, refused;  // refused: by the system
    bool sendMiddle = true, trustRoot = true;

    std::vector<Der> sent() const {
        std::vector<Spec> specs = extras;
        specs.insert(specs.begin(), leaf);
        if (sendMiddle) specs.push_back(middle);
        return made(specs);
    }
    std::vector<Der> roots() const { return trustRoot ? made({root}) : std::vector<Der>(); }
    ChainVerdict judge(const std::vector<Der>& ders, WorkBudget& budget) const {
        const std::vector<Bytes> views(ders.begin(), ders.end());
        const CertificateSet anchors(roots()), disallowed(made(refused));
        return verifyChain(views, {host, kNow, anchors, disallowed}, budget);
    }
    Spec& named(const std::string& who) {
        if (who == "extra") return extras.back();
        return who == "root" ? root : who == "middle" ? middle : leaf;
    }
};

// One change: "host=..", "leaf.after=-1" or an extension, by OpenSSL's name or as "alt" and "names"
// (constraints); without a value it goes. "pss" may name a hash for the root's key (the last byte
// of its identifier) and the least salt; the signature has SHA-256 and 32 bytes.
void change(Chain& c, const std::string& what, const std::string& value) {
    if (what == "host") {
        c.host = value;
    } else if (what == "noMiddle") {
        c.sendMiddle = false;
    } else if (what == "noRoot") {
        c.trustRoot = false;
    } else if (what == "extra") {
        c.extras.push_back(c.named(value));
    } else if (what == "refuse") {
        c.refused.push_back(c.named(value));
    } else if (what == "pss") {
        c.root.key = c.root.signer = c.middle.signer = "RSA-2048 root";
        c.middle.pss = true;
        c.root.pss = !value.empty();
        if (!c.root.pss) return;
        const std::string hash = "300d06096086480165030402" + value.substr(0, 2) + "0500";
        c.root.pssKey = test::bytesOfHex("3034a00f" + hash + "a11c301a06092a864886f70d010108" +
                                         hash + "a2030201" + value.substr(2));
    } else {
        const size_t dot = what.find('.');
        Spec& spec = c.named(what.substr(0, dot));
        const std::string field = what.substr(dot + 1);
        const std::map<std::string, std::string Spec::*> texts = {{"subject", &Spec::subject},
                                                                  {"issuer", &Spec::issuer},
                                                                  {"key", &Spec::key},
                                                                  {"signer", &Spec::signer}};
        const int nid = field == "alt"     ? NID_subject_alt_name
                        : field == "names" ? NID_name_constraints
                                           : OBJ_sn2nid(field.c_str());
        if (texts.contains(field)) {
            spec.*texts.at(field) = value;
        } else if (field == "sha1") {
            spec.hash = EVP_sha1();
        } else if (field == "before" || field == "after") {
            (field == "after" ? spec.notAfter : spec.notBefore) = kNow + std::stol(value);
        } else if (nid == NID_undef) {
            throw std::runtime_error("unknown field " + field);
        } else if (value.empty()) {
            spec.extensions.erase(nid);
        } else {
            spec.extensions[nid] = value;
        }
    }
}

// Changes with "; " between them.
void spoil(Chain& c, const std::string& changes) {
    for (size_t at = 0, end; at < changes.size(); at = end + 2) {
        end = std::min(changes.find("; ", at), changes.size());
        const size_t sign = std::min(changes.find('=', at), end);
        const std::string what = changes.substr(at, sign - at);
        change(c, what, sign < end ? changes.substr(sign + 1, end - sign - 1) : "");
    }
}

struct Row {
    const char* name;
    ChainRule expected;
    const char* changes;
    bool peerAgrees = true;
    const char* words = "";  // of the verdict
};
constexpr bool kDiffers = false;

class Chains : public testing::TestWithParam<Row> {};

TEST_P(Chains, areJudgedByTheRule) {
    Chain chain;
    spoil(chain, GetParam().changes);
    const std::vector<Der> sent = chain.sent();
    WorkBudget budget;
    const ChainVerdict verdict = chain.judge(sent, budget);
    EXPECT_EQ(verdict.broken, GetParam().expected) << ruleText(verdict.broken);
    const std::string text = verdict.subject + " by " + verdict.issuer + ": " + verdict.detail;
    EXPECT_TRUE(text.ends_with(GetParam().words)) << text;
    EXPECT_EQ(peerTrusts(sent, chain.roots(), chain.host) == verdict.trusted(),
              GetParam().peerAgrees);
}

// clang-format off
const Row kRows[] = {
    {"Good", None, ""},
    {"GoodAddress", None, "host=127.0.0.1"},
    {"GoodWithExtras", None, "extra=root; extra=leaf"},
    // The same name and key, issued by a root that nobody knows; OpenSSL tries one issuer alone.
    {"GoodCrossSign", None, "extra=middle; extra.issuer=Unknown; extra.signer=unknown", kDiffers},
    {"SelfIssuedCountsForNoLengthAndNoConstraint", None,
     "extra=middle; extra.key=P-384 other; middle.issuer=Middle; middle.signer=P-384 other; "
     "extra.names=permitted;dirName:d\n[d]\nCN=mail.example.com; "
     "root.basicConstraints=critical,CA:TRUE,pathlen:1", kDiffers},
    {"GoodBrainpool256", None, "leaf.key=brainpoolP256r1"},
    {"GoodBrainpool384", None, "leaf.key=brainpoolP384r1"},
    {"GoodBrainpool512", None, "leaf.key=brainpoolP512r1"},
    {"GoodPss", None, "pss"},
    {"GoodPssKey", None, "pss=0120"},
    {"PssKeyForAnotherHash", BadSignature, "pss=0220"},
    {"PssKeyForMoreSalt", BadSignature, "pss=0121"},
    {"PssKeyOfUnknownHash", WeakKey, "pss=0920"},
    {"GoodSha1AnchorSelfSignature", None, "root.sha1"},
    {"GoodCommonName", None, "leaf.alt"},
    {"Expired", Expired, "leaf.after=-1", true,
     "CN=mail.example.com by CN=Middle: 2026-11-20 09:45:00 UTC to 2026-11-21 09:44:59 UTC"},
    {"NotYetValid", NotYetValid, "leaf.before=1"},
    {"OtherHost", HostMismatch, "host=smtp.example.com", true,
     ": smtp.example.com is none of: mail.example.com"},
    {"OtherAddress", HostMismatch,
     "host=127.0.0.2; leaf.alt=DNS:a.test,IP:127.0.0.1,IP:2001:db8::5", true,
     ": 127.0.0.2 is none of: 127.0.0.1, 2001:db8:0:0:0:0:0:5"},
    {"AddressBesideNames", HostMismatch, "host=127.0.0.1; leaf.alt=DNS:127.0.0.1", true,
     ": 127.0.0.1: the certificate names no IP address"},
    {"AddressBesideACommonName", HostMismatch, "host=::1; leaf.alt", true,
     ": ::1: the certificate names no IP address"},
    {"CommonNameDoesNotCount", HostMismatch, "leaf.alt=DNS:other.example.com"},
    // OpenSSL looks at the common name where no name is of the host's kind.
    {"CommonNameBesideAddress", HostMismatch, "leaf.alt=IP:127.0.0.1", kDiffers,
     "mail.example.com: the certificate names no host"},
    {"CommonNameBesideDirectory", HostMismatch, "leaf.alt=dirName:d\n[d]\nCN=x", kDiffers},
    {"ClientOnly", NotForServers, "leaf.extendedKeyUsage=clientAuth"},
    {"LeafMayOnlySignCertificates", NotForServers, "leaf.keyUsage=critical,keyCertSign"},
    {"MiddleIsNoAuthority", NotAnAuthority, "middle.basicConstraints=critical,CA:FALSE"},
    {"MiddleMayNotSign", MayNotSign, "middle.keyUsage=critical,digitalSignature"},
    {"PathTooLong", PathTooLong, "root.basicConstraints=critical,CA:TRUE,pathlen:0"},
    {"WrongSignature", BadSignature, "leaf.signer=P-384 other"},
    {"Sha1", WeakSignature, "leaf.sha1"},
    {"ShortKey", WeakKey, "leaf.key=RSA-512"},
    {"MissingMiddle", UnknownIssuer, "noMiddle"},
    {"ExpiredTwinOfTheMiddle", UnknownIssuer, "extra=middle; extra.after=-1; noRoot"},
    {"NamesakeOfAnExpiredMiddle", Expired, "extra=middle; extra.key=P-384 other; middle.after=-1"},
    {"NamesakeOfAMiddleFromNobody", UnknownIssuer, "extra=middle; extra.key=P-384 other; noRoot"},
    {"ExpiredRootBesideAnUnknownOne", Expired, "extra=middle; extra.issuer=Unknown; root.after=-1"},
    {"ExpiredMiddleBesideACrossFromNobody", Expired,
     "extra=middle; extra.issuer=Unknown; extra.signer=unknown; middle.after=-1"},
    {"SelfSignedLeaf", UnknownIssuer, "leaf.issuer=mail.example.com; leaf.signer=RSA-2048 leaf"},
    {"OutsidePermitted", NameConstraint, "middle.names=permitted;DNS:example.org"},
    {"CommonNameOutsidePermitted", NameConstraint,
     "leaf.alt; root.names=permitted;DNS:example.org"},
    {"NameOfAnIntermediateIsNoHost", None,
     "middle.subject=Issuing CA 1; leaf.issuer=Issuing CA 1; "
     "root.names=permitted;DNS:example.com"},
    {"InsideExcluded", NameConstraint, "root.names=critical,excluded;DNS:example.com"},
    {"InsidePermitted", None, "middle.names=critical,permitted;DNS:example.com"},
    // OpenSSL looks at the names of the certificate alone.
    {"HostExcludedBehindAWildcard", NameConstraint,
     "host=secret.example.com; leaf.alt=DNS:*.example.com; "
     "root.names=excluded;DNS:secret.example.com", kDiffers},
    {"HostBehindAWildcardBesideAnExcludedOne", None,
     "host=open.example.com; leaf.alt=DNS:*.example.com; "
     "root.names=excluded;DNS:secret.example.com"},
    {"ExcludedBaseThatIsNoName", NameConstraint,
     "middle.names=excluded;DNS:*.other.test", kDiffers},
    {"IssuerInOtherLetters", None,
     "middle.subject=K\u00f6z\u00e9p  Ny\u00edl; leaf.issuer=T61: k\xf6Z\xe9p NY\xedL "},
    {"ExcludedDirectoryInOtherLetters", NameConstraint,
     "middle.names=excluded;dirName:d\n[d]\nCN=MAIL.Example.com "},
    {"PermittedDirectoryInOtherLetters", None,
     "middle.names=permitted;dirName:d\n[d]\nCN=MAIL.Example.com "},
    {"EveryEmailOfTheSubject", NameConstraint,
     "leaf.alt; leaf.subject=mail.example.com\na@b.test\na@example.com; "
     "middle.names=permitted;email:example.com"},
    {"UriInsideExcluded", NameConstraint,
     "leaf.alt=DNS:mail.example.com,URI:https://B.test:8/; middle.names=excluded;URI:b.test"},
    {"KindThatCannotBeJudged", NameConstraint,
     "leaf.alt=DNS:mail.example.com,otherName:1.2.3;UTF8:x; "
     "middle.names=excluded;otherName:1.2.3;UTF8:y"},
    {"KindThatCannotBeJudgedAndIsNotThere", None,
     "leaf.alt=DNS:mail.example.com,RID:1.2.3; middle.names=excluded;otherName:1.2.3;UTF8:y"},
    {"ConstraintsInALeaf", BadConstraints, "leaf.names=permitted;DNS:example.com", kDiffers},
    {"EmptyConstraints", BadConstraints, "middle.names=DER:3000", kDiffers},
    {"EmptyListOfConstraints", BadConstraints, "middle.names=DER:3002A000", kDiffers},
    {"ExplicitMinimumOfConstraints", None, "middle.names=DER:300CA00A30088203636F6D800100"},
    // OpenSSL is told of anchors alone.
    {"DisallowedLeaf", Disallowed, "refuse=leaf", kDiffers},
    {"DisallowedMiddle", Disallowed, "refuse=middle", kDiffers},
    {"DisallowedRoot", Disallowed, "refuse=root", kDiffers},
    {"DisallowedTwinOfTheMiddle", None, "extra=middle; extra.after=1; refuse=extra"},
    // OpenSSL understands the first and looks at no qualifier.
    {"UnknownCritical", UnknownCritical, "leaf.inhibitAnyPolicy=critical,0", kDiffers},
    {"CriticalPoliciesWithUnknownQualifier", UnknownCritical,
     "leaf.certificatePolicies=critical,DER:300E300C06012A3007300506012B0500", kDiffers},
    {"CriticalPolicies", None,
     "leaf.certificatePolicies=critical,1.2.3,@p\n[p]\npolicyIdentifier=1.2.4\nCPS=http://x"},
    {"ExplicitlyNoAuthority", None, "leaf.basicConstraints=critical,DER:3003010100"},
    {"UnknownNotCritical", None, "leaf.nsComment=harmless"},
    // OpenSSL does not expect it to be critical.
    {"CriticalKeyIdentifier", None, "leaf.authorityKeyIdentifier=critical,DER:3000", kDiffers},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(X509, Chains, testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.name); });

// So many times, with the number in place of each "#".
std::string many(int count, std::string_view text) {
    std::string all;
    for (int i = 1; i <= count; ++i)
        all += replaceAll(text, "#", std::to_string(i));
    return all;
}

// Levels of nine authorities of one name and key each between the leaf and the root; those of one
// level may name no e-mail address of another host, but the leaf has one.
std::string levels(int count, int constrained) {
    std::string text = "noMiddle; leaf.issuer=Level 1; leaf.signer=Level 1; ";
    for (int i = 1; i <= count; ++i) {
        const std::string self = "Level " + std::to_string(i);
        const std::string above = i < count ? "Level " + std::to_string(i + 1) : "Root";
        text += many(9, "extra=root; extra.subject=" + self + "; extra.key=" + self +
                            "; extra.issuer=" + above + "; extra.signer=" + above +
                            "; extra.after=#; " +
                            (i == constrained ? "extra.names=permitted;email:example.com; " : ""));
    }
    return text;
}

const std::string kManyNames =
    many(990, "DNS:some-forty-letters-and-more-#.example.com,") + "DNS:mail.example.com";
const std::string kLast = "excluded;DNS:other.test";

const struct {
    const char* name;
    ChainRule expected;
    uint64_t mostUnits;
    std::string changes = {};
} kWork[] = {
    {"an honest chain", None, 20000},
    {"two authorities that issued each other, many times over", UnknownIssuer, 300000,
     "noRoot; " + many(31,
                       "extra=middle; extra.after=#; extra=root; extra.issuer=Middle; "
                       "extra.signer=P-384 middle; extra.after=#; ")},
    {"namesakes with dear keys", TooMuchWork, WorkBudget::kUnits,
     many(30, "extra=middle; extra.key=P-521 #; ")},
    {"a forged leaf and many constraints", BadSignature, 20000,
     "leaf.signer=P-384 other; leaf.alt=" + kManyNames +
         "; middle.names=" + many(900, "excluded;DNS:x#.example.com,") + kLast},
    {"many names and many constraints", TooMuchWork, WorkBudget::kUnits,
     "leaf.alt=" + kManyNames + "; middle.names=" +
         many(900, "excluded;DNS:other-forty-letters-and-more-#.example.com,") + kLast},
    {"millions of paths over a broken constraint", NameConstraint, 150000,
     levels(7, 1) + "leaf.alt=email:a@b.test," + kManyNames},
    {"hundreds of paths to a few broken constraints", NameConstraint, 250000,
     levels(3, 3) + "leaf.alt=" + kManyNames + ",email:a@b.test"},
};

TEST(Chains, takeAsMuchWorkAsIsGranted) {
    for (const auto& row : kWork) {
        Chain chain;
        spoil(chain, row.changes);
        WorkBudget budget;
        EXPECT_EQ(chain.judge(chain.sent(), budget).broken, row.expected) << row.name;
        EXPECT_LE(budget.spent(), row.mostUnits) << row.name;
    }
}

TEST(Chains, areLeftWhenTheCallerHasNoTime) {
    for (const int questions : {0, 1, 3}) {
        Chain chain;
        spoil(chain, kWork[2].changes);
        int asked = 0;
        WorkBudget budget([&] { return asked++ < questions ? 1 : 0; });
        EXPECT_EQ(chain.judge(chain.sent(), budget).broken, Stopped);
        EXPECT_EQ(asked, questions + 1);
    }
}

TEST(Chains, everyChangedByteIsNoticedAndNoCutCertificateIsReadable) {
    const Chain chain;
    const std::vector<Der> sent = chain.sent();
    for (size_t i = 0; i < sent[0].size(); ++i) {
        for (const int bit : {0x01, 0x80}) {
            std::vector<Der> changed = sent;
            changed[0][i] = static_cast<uint8_t>(changed[0][i] ^ bit);
            WorkBudget budget;
            EXPECT_FALSE(chain.judge(changed, budget).trusted()) << i;
        }
        Certificate certificate;
        EXPECT_FALSE(parseCertificate(Bytes(sent[0]).first(i), certificate)) << i;
    }
}

}  // namespace
}  // namespace tv::x509
