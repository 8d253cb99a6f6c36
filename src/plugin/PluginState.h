// The one state record that all exports share, and the exports that are more than a single setter.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "mail/TvMailMan.h"
#include "mime/TvEmail.h"

namespace tv {

// Used by one host thread; takes no lock.
class PluginState {
public:
    // Made on first use and never destroyed: a host may unload the library or exit at any moment,
    // with a connection open, and must not be held up.
    static PluginState& instance();
    // For tests: another record in its place (nullptr: the own one again); returns the one before.
    static PluginState* replaceInstance(PluginState* state);

    PluginState();

    // Null until initialise.
    TvMailMan* mailMan() { return mailMan_.get(); }
    TvEmail* email() { return email_.get(); }

    // Replaces both objects by fresh ones; on an exception the old ones stay.
    void initialise();
    // Names the sent-mail log; the debug log path becomes the current directory itself.
    void setLogging();
    // Turns the body into the message's HTML body, with the image in it unless path is empty.
    void setLogo(const char* path);
    // The user sees a failure at once; nothing else reports it.
    void setAttachment(const char* path);
    // Trial connection, then the message; true if the server took it, else lastError has the
    // reason. From the send on the e-mail is reset in every case, exceptions included.
    bool send();
    void resetEmail();

    int32_t noopCount = 0;  // kept for the host, read by nobody
    std::string body;       // reaches the e-mail through setLogo alone
    std::string lastError;  // in the ANSI code page
    std::string logDirectory;

private:
    std::unique_ptr<TvMailMan> mailMan_;
    std::unique_ptr<TvEmail> email_;
};

// "An error occurred", in Hungarian, as the bytes that both Central and Western European code pages
// read alike.
extern const char* const kErrorTitle;

}  // namespace tv
