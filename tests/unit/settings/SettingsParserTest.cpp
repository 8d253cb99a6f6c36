// What a settings file says, what is wrong with it, and where.
#include "settings/SettingsParser.h"

#include <gtest/gtest.h>

#include "settings/SettingsKeys.h"

namespace tv::settings {
namespace {

constexpr uint32_t kLatin2 = 1250;

// The files that a row may name; the first is one that everybody may read.
std::string readNamed(const std::string& path, bool secret, std::string& bytes) {
    if (path == "/etc/mail/open.txt") return secret ? "can be read by anybody" : "";
    if (path == "/etc/mail/empty.txt") return "";
    if (path != "/etc/mail/secret.txt" && path != "/root.pem") return "is no file";
    bytes = "\xEF\xBB\xBFp\xC3\xA1ss\r\nsecond line\r\n";
    return "";
}

Failure parsed(std::string_view bytes, Settings& out) {
    return parseSettings(bytes, kLatin2, "/etc/mail/e.ini", readNamed, out);
}

// What is in force, or what is wrong, line by line.
std::string told(std::string_view bytes) {
    Settings settings;
    if (const Failure failure = parsed(bytes, settings)) {
        EXPECT_TRUE(failure.is(Cause::SettingsUnusable));
        constexpr std::string_view kFront = "The settings file /etc/mail/e.ini cannot be used: ";
        EXPECT_TRUE(failure.text().starts_with(kFront));
        return failure.text().substr(kFront.size());
    }
    std::string all;
    for (const std::string& line : settings.inForce) {
        all += (all.empty() ? "" : "; ") + line;
    }
    return all;
}

TEST(SettingsParser, whatIsWrittenIsUnderstoodOrNamed) {
    const std::string_view rows[][2] = {
        {"", ""},
        {" ; a\n#b\r\n\n[Server]\nHOST = mail.test \nport=25",
         "[server] host = mail.test; [server] port = 25"},
        {"[server]\nhost = \"mail.test\"", "[server] host = \"mail.test\""},
        {"host = a",
         "line 1: \"host\" is no key before any section; perhaps \"host\" of [server] is meant."},
        {"profil = modern",
         "line 1: \"profil\" is no key before any section; perhaps \"profile\" before any section "
         "is "
         "meant."},
        {"[]",
         "line 1: [] is no section; there are [server], [login], [certificate], [tls], "
         "[message], [names], [log], [test]."},
        {"profile = modern\n[server]\ntrial = never",
         "profile = modern; [server] trial = never; [server] helo = dns (profile); "
         "[server] acceptance-timeout = 10 min (profile); [message] text-alternative = yes "
         "(profile); [message] message-id-domain = sender (profile); [message] angle-brackets = "
         "always (profile); [message] logo-disposition = inline (profile); [message] text-files = "
         "exact (profile); [message] empty-subject = keep (profile); [message] check-size = yes "
         "(profile)"},
        {"[server]\nhots = a",
         "line 2: \"hots\" is no key of [server]; perhaps \"host\" of [server] is meant."},
        {"[login]\nhost = a",
         "line 2: \"host\" is no key of [login]; perhaps \"host\" of [server] is meant."},
        {"[server]\nsomething-else = a", "line 2: \"something-else\" is no key of [server]."},
        {"[server\nhost = a", "line 1: \"[server\" has no \"]\" at its end."},
        {"[sever]",
         "line 1: [sever] is no section; there are [server], [login], [certificate], [tls], "
         "[message], [names], [log], [test]."},
        {"[server]\nmail.test", "line 2: there is no \"=\" in it."},
        {"[server]\nhost = a\nhost = b", "line 3: \"host\" stands in line 2, too."},
        {"[server]\nhost =",
         "line 2: \"host\" must be a name or an address, without blanks; nothing stands there."},
        {"[server]\nhost = \"a", "line 2: \"host\" has no quote at its end."},
        {"[login]\nuser = \"a\"b\"",
         "line 2: a quote inside the quotes of \"user\" must be doubled."},
        {"[login]\nuser = a\x01", "line 2: \"user\" holds a control character."},
        {std::string_view("[login]\nuser = a\0b", 18), "line 2: there is a NUL character in it."},
        {"[server]\nport = 0", "line 2: \"port\" must be a number from 1 to 65535, not \"0\"."},
        {"[server]\ntrial = often",
         "line 2: \"trial\" must be always, first or never, not \"often\"."},
        {"[server]\nidle-timeout = 999 ms",
         "line 2: \"idle-timeout\" must be a time from 1 s to 3600 s, as in \"30 s\" or \"5 min\", "
         "not \"999 ms\"."},
        {"[message]\ndelivery-report = delay, never",
         "line 2: \"delivery-report\" must be some of failure, delay, success, with commas between "
         "them, not \"never\"."},
        {"[certificate]\npin = 00, sha256//AAAA",
         "line 2: \"pin\" must be \"sha256//\" and 32 bytes in base64, or 64 hexadecimal digits, "
         "with "
         "commas between several, not \"00\"."},
        {"[names]\nservers = ::1, TLS://192.0.2.1\nservers = tls://2001:db8::1#dns.test",
         "[names] servers = ::1, TLS://192.0.2.1; "
         "[names] servers = tls://2001:db8::1#dns.test"},
        {"[names]\nservers = 192.0.2.1, tls://dns.test",
         "line 2: \"servers\" must be up to 32 addresses, tls://ADDRESS#NAME or tls://ADDRESS, "
         "with "
         "commas between them, not \"tls://dns.test\"."},
        {"[message]\nbcc = a@b.test\nbcc = c@d.test, e",
         "line 3: \"bcc\" must be e-mail addresses, with commas between them, not \"e\"."},
        {"[message]\nenvelope-sender = a@b@c.test",
         "line 2: \"envelope-sender\" must be an e-mail address, not \"a@b@c.test\"."},
        {"[server]\nfamily = ipv4\nlocal-address = ::1",
         "line 3: \"local-address\" is none of \"family\"."},
        {"[message]\nfrom = Anna <a@b.test> x",
         "line 2: \"from\" must be an e-mail address, or a name and the address in angle brackets, "
         "not \"Anna <a@b.test> x\"."},
        {"[message]\nheader = X-A: 1\nheader = content-type: x",
         "line 3: \"header\" must be a field of the header, as in \"X-Site: 17\", but none that "
         "messages have anyway, not \"content-type: x\"."},
        {"[certificate]\nroots = none.pem",
         "line 2: the file of \"roots\", /etc/mail/none.pem, is no file."},
        {"[certificate]\nverify = no\nroots = /root.pem",
         "line 3: \"roots\" stands beside verify = no."},
        {"[tls]\nlowest = 1.3\nhighest = 1.2", "line 2: \"lowest\" is newer than \"highest\"."},
        {"[login]\nchannel-binding = required\nntlm = 1",
         "line 3: \"ntlm\" = 1 stands beside channel-binding = required."},
        {"[login]\npassword = x",
         "line 2: a secret needs \"host\" of [server] and \"user\" of [login] in this file."},
        {"[server]\nhost = a\n[login]\noauth2 = secret.txt",
         "line 4: a secret needs \"host\" of [server] and \"user\" of [login] in this file."},
        {"[login]\npassword = x\npassword-file = secret.txt",
         "line 3: \"password-file\" stands beside \"password\"."},
        {"[login]\npassword-file = open.txt",
         "line 2: the file of \"password-file\" can be read by anybody."},
        {"[login]\npassword-file = empty.txt",
         "line 2: the file of \"password-file\" holds no text."},
        {"\xFF\xFEx", "it is no text."},
        {std::string_view("\xFF\xFE#\0\0\xD8", 6), "it is no text."},
    };
    for (const auto& [bytes, expected] : rows) {
        EXPECT_EQ(told(bytes), expected) << bytes;
    }
}

TEST(SettingsParser, valuesReachTheirPlaces) {
    Settings s;
    ASSERT_FALSE(
        parsed("[server]\nhost=h\nport=65535\nencryption=Implicit\nhelo=[10.0.0.1]\n"
               "trial=never\nreuse=no\nconnect-timeout=1 h\nidle-timeout=1500ms\n"
               "[login]\nuser=\" a \"\"b\"\"\"\npassword-file=secret.txt\ndomain=D\n"
               "[certificate]\nroots=/root.pem\n[tls]\nlowest=1.1\nhighest=1.3\n"
               "[message]\nall-recipients=yes\ndelivery-report=failure,delay\n"
               "[names]\nservers=10.0.0.1,tls://10.0.0.2#Dns.Test\nservers=tls://::1\n"
               "[log]\nsent-mail=sub/x.log\n",
               s));
    EXPECT_EQ(s.host, "h");
    EXPECT_EQ(s.port, 65535);
    EXPECT_EQ(s.encryption, Encryption::Implicit);
    EXPECT_EQ(s.helo, "[10.0.0.1]");
    EXPECT_EQ(s.trial, Trial::Never);
    EXPECT_EQ(s.reuse, false);
    EXPECT_EQ(s.connectTimeoutMs, 3600000u);
    EXPECT_EQ(s.idleTimeoutMs, 1500u);
    EXPECT_EQ(s.user, " a \"b\"");
    EXPECT_EQ(s.password, XString("p\xC3\xA1ss"));
    EXPECT_TRUE(s.password->isSecret());
    EXPECT_EQ(s.onlyEncrypted, true) << "where the file has the secret";
    EXPECT_EQ(s.domain, "D");
    EXPECT_EQ(s.verify, true) << "for the sake of the roots";
    EXPECT_EQ(s.roots, "/root.pem");
    EXPECT_EQ(s.lowest, TlsVersion::Tls11);
    EXPECT_EQ(s.highest, TlsVersion::Tls13);
    EXPECT_EQ(s.allRecipients, true);
    EXPECT_EQ(s.deliveryReport, (std::vector<std::string>{"failure", "delay"}));
    std::string servers;
    for (const NameServer& server : s.servers) {
        servers += toText(server) + ' ';
    }
    EXPECT_EQ(servers, "10.0.0.1 tls://10.0.0.2#dns.test tls://::1 ");
    EXPECT_EQ(s.sentMail, "/etc/mail/sub/x.log");
    ASSERT_FALSE(parsed("[log]\nsent-mail=OFF\ndebug=d.log", s));
    EXPECT_EQ(s.sentMail, "");
    EXPECT_EQ(s.debug, "/etc/mail/d.log");
    ASSERT_FALSE(parsed("[log]\nsent-mail = host", s));
    EXPECT_FALSE(s.sentMail);
}

TEST(SettingsParser, everyEncodingOfATextFile) {
    for (const std::string_view bytes :
         {std::string_view("[login]\nuser = \xC3\xA1"), std::string_view("[login]\nuser = \xE1"),
          std::string_view("\xEF\xBB\xBF[login]\nuser = \xC3\xA1"),
          std::string_view("\xFF\xFE[\0l\0o\0g\0i\0n\0]\0\r\0\n\0u\0s\0e\0r\0=\0\xE1\0", 32),
          std::string_view("\xFE\xFF\0[\0l\0o\0g\0i\0n\0]\0\n\0u\0s\0e\0r\0=\0\xE1", 30)}) {
        Settings settings;
        ASSERT_FALSE(parsed(bytes, settings));
        EXPECT_EQ(settings.user, "\xC3\xA1");
    }
}

TEST(SettingsParser, secretsAreNotTold) {
    const char* const lines[] = {"password = hidden-word", "password = \"hidden-word",
                                 "password hidden-word", "password = hidden-word\x01"};
    for (const char* line : lines) {
        const std::string file = std::string("[server]\nhost=h\n[login]\nuser=u\n") + line;
        EXPECT_EQ(told(file).find("hidden-word"), std::string::npos) << told(file);
    }
}

TEST(NameServer, whatIsNone) {
    for (const char* text :
         {"", "dns.test", "10.0.0.1#dns.test", "10.0.0.1:53", "0.0.0.0", "tls://",
          "tls://::", "tls://10.0.0.1#", "tls://10.0.0.1#a..b", "tls://10.0.0.1#.",
          "tls://10.0.0.1#a b", "tls://[::1]#a", "tls://dns.test#dns.test"}) {
        EXPECT_FALSE(parseNameServer(text)) << text;
    }
}

std::string count(int64_t number, std::string_view unit = {}) {
    return std::to_string(number) + std::string(unit);
}

// Values of this form that must be refused; what stands behind the last comma is what is wrong.
std::vector<std::string> refusedBy(const Form& form) {
    const std::string first(form.choices.substr(0, form.choices.find(',')));
    const std::string pin(64, '0');
    switch (form.kind) {
        case Kind::Text:
        case Kind::Target:
            return {};  // nothing but an empty one
        case Kind::Host:
            return {"a b"};
        case Kind::Address:
            return {"here", "10.0.0", "10.0.0.1 x", "::1%"};
        case Kind::Number:
            return {count(form.lowest - 1), count(form.highest + 1), count(form.lowest, "x"),
                    "99999999999999999999"};
        case Kind::Size:
            return {count(form.lowest / 1024 - 1, " KB"), count(form.highest / 1024 + 1, " KB"),
                    count(form.lowest), "1 MB x"};
        case Kind::Duration:
            return {count(form.lowest - 1, " ms"), count(form.highest + 1, " ms"),
                    count(form.lowest), "1 s x", "99999999999999 h"};
        case Kind::YesNo:
            return {"1", "true", "yes no"};
        case Kind::Choice:
            return {first + "x", std::string(form.choices)};
        case Kind::Choices:
            return {"x", first + ", " + first + "x"};
        case Kind::KeyPins:
            return {"00", pin + ", " + pin + "0", "sha256//" + pin};
        case Kind::NameServers:
            return {"dns.test", "10.0.0.1, tls://dns.test"};
        case Kind::Mailboxes:
            return {"a@b, c", "a@b, @b", "a@b, c@"};
        case Kind::Mailbox:
            return {"a", "@b", "a@", "a b@c", "A <a@b>", "a@b, c@d"};
        case Kind::NamedMailbox:
            return {"a", "A <a>", "<a@b> x", "<<a@b>", "A <@b>"};
        case Kind::Field:
            return {"X", "X:", ": x", "X Y: x", "Content-X: x", "bcc: a@b"};
        case Kind::File:
        case Kind::SecretLine:
        case Kind::SecretFile:
            return {"/none"};
        case Kind::Secret:
            return {"dpapi:AAA", "dpapi:AAAA"};
    }
    return {};
}

constexpr bool isWords(Kind kind) {
    return isList(kind) && kind != Kind::Field;
}

// Of each key: the line, its name, what may stand there, and what stands there unless it is secret.
TEST(SettingsParser, everyKeyRefusesWhatItsFormDoesNot) {
    for (const Key& key : keys()) {
        const std::string front =
            (key.section.empty() ? "" : '[' + std::string(key.section) + ']') + '\n';
        const std::string name = '"' + std::string(key.name) + '"';
        const std::string wanted = "line 2: " + name + " must be " + mayBe(key.form);
        for (const char* empty : {"", "\"\""}) {
            EXPECT_EQ(told(front + std::string(key.name) + " = " + empty),
                      wanted + "; nothing stands there.");
        }
        for (const std::string& value : refusedBy(key.form)) {
            const bool hidden = key.section == "login";
            const size_t comma = isWords(key.form.kind) ? value.rfind(", ") : value.npos;
            const std::string shown = comma == value.npos ? value : value.substr(comma + 2);
            const std::string expected =
                value == "/none"
                    ? "line 2: the file of " + name + (hidden ? " is" : ", /none, is") + " no file."
                : isSecret(key.form.kind) ? "line 2: " + name
                : hidden                  ? wanted + '.'
                                          : wanted + ", not \"" + shown.substr(0, 60);
            const std::string all = told(front + std::string(key.name) + " = " + value);
            EXPECT_TRUE(all.starts_with(expected)) << all << "\n" << expected;
        }
    }
}

TEST(SettingsParser, oneNameServerTooMany) {
    std::string file = "[names]\nservers = 10.0.0.1";
    for (size_t i = 2; i <= kMostNameServers; ++i) {
        file += i % 2 == 0 ? ", 10.0.0." : "\nservers = 10.0.0.";
        file += std::to_string(i);
    }
    EXPECT_TRUE(told(file).starts_with("[names] servers"));
    EXPECT_EQ(told(file + "\nservers = tls://::1"),
              "line 18: \"servers\" must be up to 32 addresses, tls://ADDRESS#NAME or "
              "tls://ADDRESS, with commas between them, not one more, \"tls://::1\".");
}

// Each example can stand in a file as it is.
TEST(SettingsParser, examplesOfTheTableAreGood) {
    for (const Key& key : keys()) {
        if (key.form.kind == Kind::File || isSecret(key.form.kind)) continue;
        const std::string section = key.section.empty() ? "" : '[' + std::string(key.section) + ']';
        const std::string file =
            section + '\n' + std::string(key.name) + " = " + std::string(key.example);
        EXPECT_FALSE(told(file).starts_with("line")) << file;
    }
}

}  // namespace
}  // namespace tv::settings
