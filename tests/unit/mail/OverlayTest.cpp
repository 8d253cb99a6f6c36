// What a settings file changes for one send, key by key: the host's properties, its message, the
// envelope.
#include <gtest/gtest.h>

#include "base/Hex.h"
#include "mail/MessageOverlay.h"
#include "mail/SettingsOverlay.h"
#include "mime/ClsEmail.h"
#include "settings/SettingsParser.h"
#include "tests/fixtures/FakeSystem.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

std::string noFile(const std::string&, bool, std::string& bytes) {
    bytes = "from a file";
    return {};
}

// "|" ends a line of the file.
settings::Settings fileOf(std::string text) {
    for (char& c : text)
        c = c == '|' ? '\n' : c;
    settings::Settings file;
    const Failure failure = settings::parseSettings(text, 1252, "/e.ini", noFile, file);
    EXPECT_FALSE(failure) << failure.text();
    return file;
}

std::string joined(const std::vector<std::string>& words) {
    std::string all;
    for (const std::string& word : words)
        all += (all.empty() ? "" : ",") + word;
    return all;
}

using Facts = std::vector<std::pair<std::string, std::string>>;

Facts factsOf(const SmtpSettings& s) {
    const auto text = [](const XString& x) { return std::string(x.utf8()); };
    const auto number = [](auto n) { return std::to_string(static_cast<int64_t>(n)); };
    std::string pins;
    for (const std::string& pin : s.pinnedKeys) {
        pins += hexUpper({reinterpret_cast<const uint8_t*>(pin.data()), pin.size()}).substr(0, 8);
    }
    return {
        {"host", text(s.smtpHost)},
        {"port", number(s.smtpPort)},
        {"ssl", number(s.smtpSsl)},
        {"startTls", number(s.startTls)},
        {"ifPossible", number(s.startTlsIfPossible)},
        {"verify", number(s.requireSslCertVerify)},
        {"tls", text(s.tlsProtocol)},
        {"old", number(s.oldSuites)},
        {"roots", text(s.trustAnchorsFile)},
        {"further", text(s.furtherAnchorsFile)},
        {"pins", pins},
        {"fixPort", number(s.fixPort)},
        {"fixEncryption", number(s.fixEncryption)},
        {"helo", text(s.heloHostname)},
        {"heloAddress", number(s.heloAddress)},
        {"local", text(s.localAddress)},
        {"family", s.onlyFamily ? number(*s.onlyFamily == plat::AddressFamily::IPv6 ? 6 : 4) : ""},
        {"connect", number(s.connectTimeoutMs)},
        {"idle", number(s.idleTimeoutMs)},
        {"acceptance", number(s.acceptanceTimeoutMs)},
        {"total", number(s.totalTimeoutMs)},
        {"methods", joined(s.methods)},
        {"cram", number(s.cramMd5InClear)},
        {"user", text(s.userName)},
        {"password", text(s.password)},
        {"domain", text(s.loginDomain)},
        {"ntlm", s.ntlmVersion ? number(*s.ntlmVersion) : ""},
        {"onlyEncrypted", number(s.onlyEncrypted)},
        {"binding", number(s.channelBinding)},
        {"token", text(s.oauth2Token)},
        {"all", number(s.requireAllRecipients)},
        {"later", number(s.dataAfterRecipients)},
        {"size", number(s.heedSizeLimit)},
        {"limits", number(s.heedLimits)},
        {"notify", text(s.dsnNotify)},
        {"sentMail", text(s.sentMailLogFile)},
    };
}

// What another one has, as "name=value ...".
std::string differences(const Facts& before, const Facts& now) {
    std::string all;
    for (size_t i = 0; i < now.size(); ++i) {
        if (now[i] != before[i]) all += " " + now[i].first + "=" + now[i].second;
    }
    return all;
}

TEST(SettingsOverlay, eachKeyChangesItsProperty) {
    const FakeHost host;
    const std::string pin(64, 'a');
    const struct {
        std::string file, changed;
        bool starttls = false;  // asked for by the host
    } rows[] = {
        {"", ""},
        {"[server]|host = m.test|port = 465|family = ipv6|local-address = ::1",
         " host=m.test port=465 fixPort=0 local=::1 family=6"},
        {"[server]|family = ipv4|helo = me.test", " helo=me.test family=4"},
        {"[server]|family = any|helo = dns", " heloAddress=1"},
        {"[server]|encryption = none", " ifPossible=0 fixEncryption=0"},
        {"[server]|encryption = if-offered", " startTls=0 fixEncryption=0", true},
        {"[server]|encryption = starttls", " startTls=1 ifPossible=0 fixEncryption=0"},
        {"[server]|encryption = implicit", " ssl=1 startTls=0 ifPossible=0 fixEncryption=0", true},
        {"[server]|connect-timeout = 1 s|idle-timeout = 2 s|acceptance-timeout = 3 s|"
         "total-timeout = 4 s",
         " connect=1000 idle=2000 acceptance=3000 total=4000"},
        {"[server]|host = m.test|[login]|user = me|password = secret",
         " host=m.test user=me password=secret onlyEncrypted=1"},
        {"[server]|host = m.test|[login]|user = me|oauth2 = t.json|only-encrypted = no",
         " host=m.test user=me password= token=from a file"},
        {"[login]|methods = plain, login|domain = D|ntlm = 1|channel-binding = if-possible",
         " methods=plain,login domain=D ntlm=1 binding=1"},
        {"[certificate]|verify = yes|roots = r.pem|roots-also = a.pem|pin = " + pin,
         " verify=1 roots=/r.pem further=/a.pem pins=AAAAAAAA", true},
        {"[certificate]|verify = no|[tls]|lowest = 1.2|old-suites = no",
         " tls=TLS 1.2 to 1.3 old=0"},
        {"[tls]|highest = 1.1", " tls=TLS 1.0 to 1.1"},
        {"[message]|all-recipients = yes|delivery-report = failure, delay",
         " all=1 later=1 notify=FAILURE,DELAY"},
        {"profile = modern", " heloAddress=1 acceptance=600000 cram=1 size=1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file);
        LogNull log;
        SmtpSettings settings;
        settings.smtpHost.setUtf8("hosts.test");
        settings.password.setUtf8("host's");
        settings.startTls = row.starttls;
        const Facts before = factsOf(settings);
        const settings::Settings file = fileOf(row.file);
        {
            SettingsOverlay overlay(settings, &file);
            const Failure failure = overlay.lay(log);
            EXPECT_FALSE(failure) << failure.text();
            std::string changed = differences(before, factsOf(settings));
            const size_t limits = changed.find(" limits=1");
            EXPECT_NE(limits, std::string::npos) << "with any file";
            if (limits != std::string::npos) changed.erase(limits, 9);
            EXPECT_EQ(changed, row.changed);
        }
        EXPECT_EQ(differences(before, factsOf(settings)), "") << "the host's own are back";
    }
}

TEST(SettingsOverlay, certificateKeysNeedTls) {
    const struct {
        const char* file;
        int32_t port;
        bool ssl;
        const char* names;  // the key that is named; null: it is enough
    } rows[] = {
        {"[certificate]|verify = yes", 587, false, "\"verify\""},
        {"[certificate]|roots = r.pem", 587, false, "\"roots\""},
        {"[certificate]|roots-also = r.pem", 587, false, "\"roots-also\""},
        {"[certificate]|verify = no", 587, false, nullptr},
        {"[certificate]|verify = yes", 465, true, nullptr},
        {"[certificate]|verify = yes", 25, true, "the host program asks for neither"},
        {"[server]|encryption = implicit|[certificate]|verify = yes", 25, false, nullptr},
        {"[server]|encryption = none|[certificate]|verify = yes", 465, true, "the file says"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.file) + std::to_string(row.port));
        LogNull log;
        SmtpSettings settings;
        settings.smtpPort = row.port;
        settings.smtpSsl = row.ssl;
        const settings::Settings file = fileOf(row.file);
        SettingsOverlay overlay(settings, &file);
        const Failure failure = overlay.lay(log);
        EXPECT_EQ(bool(failure), row.names != nullptr);
        EXPECT_NE(failure.text().find(row.names ? row.names : ""), std::string::npos);
    }
}

TEST(MessageOverlay, eachKeyChangesHeaderOrEnvelope) {
    const struct {
        const char* file;
        const char* from;  // the host's
        const char* fields;
        const char* envelope = "anna@from.test: bela@to.test";
    } rows[] = {
        {"", "anna@from.test", "From: anna@from.test|Subject: S|"},
        {"[message]|from = other@x.test", "anna@from.test", "From: anna@from.test|Subject: S|"},
        {"[message]|from = O <other@x.test>", "", "From: O <other@x.test>|Subject: S|",
         "other@x.test: bela@to.test"},
        {"[message]|from-always = other@x.test", "Anna <anna@from.test>",
         "From: other@x.test|Reply-To: Anna <anna@from.test>|Subject: S|",
         "other@x.test: bela@to.test"},
        {"[message]|from-always = anna@from.test", "Anna <anna@from.test>",
         "From: anna@from.test|Subject: S|"},
        {"[message]|from-always = other@x.test|reply-to = r@x.test|envelope-sender = e@x.test",
         "anna@from.test", "From: other@x.test|Reply-To: r@x.test|Subject: S|",
         "e@x.test: bela@to.test"},
        {"[message]|bcc = b@x.test, c@x.test|header = X-A: 1|header = X-B: 2", "anna@from.test",
         "From: anna@from.test|Subject: S|X-A: 1|X-B: 2|",
         "anna@from.test: bela@to.test,b@x.test,c@x.test"},
        {"[message]|bcc = b@x.test|[test]|redirect = t@x.test", "anna@from.test",
         "From: anna@from.test|Subject: S|", "anna@from.test: t@x.test"},
        {"[message]|message-id-domain = sender", "anna@from.test",
         "From: anna@from.test|Message-ID: <id@from.test>|Subject: S|"},
        {"[message]|message-id-domain = computer", "anna@from.test",
         "From: anna@from.test|Subject: S|"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file);
        LogNull log;
        const settings::Settings file = fileOf(row.file);
        ClsEmail email;
        email.put_FromAddress(XString(row.from));
        email.put_Subject(XString("S"));
        const auto message = email.createEmailForSending(log, false);
        ASSERT_TRUE(message);
        message->header().set("Message-ID", "<id@computer>");
        SmtpSend send;
        send.fromAddress = message->from().address();
        send.recipients = {"bela@to.test"};
        EXPECT_TRUE(layOverMessage(log, file, *message));
        layOverEnvelope(log, file, *message, send);
        const std::string header = rendered(*message);
        std::string fields;
        for (const char* name : {"From", "Reply-To", "Message-ID", "Subject", "X-A", "X-B"}) {
            const size_t at = header.find(std::string("\r\n") + name + ": ");
            if (at == std::string::npos) continue;
            const std::string field = header.substr(at + 2, header.find("\r\n", at + 2) - at - 2);
            if (field != "Message-ID: <id@computer>") fields += field + '|';
        }
        EXPECT_EQ(fields, row.fields);
        EXPECT_EQ(send.fromAddress + ": " + joined(send.recipients), row.envelope);
    }
}

}  // namespace
}  // namespace tv::test
