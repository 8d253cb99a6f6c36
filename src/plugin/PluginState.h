// The one state record that all exports share, and the exports that are more than a single setter.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "plugin/LastError.h"
#include "plugin/Workbench.h"

namespace tv {

// Safe to use from any thread. Nothing is locked while the user looks at a message box: the box
// runs the host's timers and windows, which may call whatever they like.
class PluginState {
public:
    // Made on first use and never destroyed: a host may unload the library or exit at any moment,
    // with a connection open, and must not be held up.
    static PluginState& instance();
    // For tests: another record in its place (nullptr: the own one again); returns the one before.
    static PluginState* replaceInstance(PluginState* state);

    PluginState() = default;

    // Puts a fresh workbench in place; on an exception the old one stays. A send under way goes on
    // with the one that it has.
    void initialise();
    // Names the sent-mail log; the debug log path becomes the current directory itself.
    void setLogging();
    void setBody(const char* text);
    // Turns the body into the message's HTML body, with the image in it unless path is empty.
    void setLogo(const char* path);
    // The user sees a failure at once; nothing else reports it.
    void setAttachment(const char* path);
    // Trial connection, then the message; true if the server took it, else lastError has the
    // reason. From the send on the e-mail is reset in every case, exceptions included.
    bool send();
    void resetEmail();

    // For tests.
    std::string body() const;
    std::string logDirectory() const;

    std::atomic<int32_t> noopCount = 0;  // kept for the host, read by nobody
    LastError lastError;                 // in the ANSI code page
    WorkbenchSlot workbench;             // empty until initialise

private:
    mutable std::mutex lock_;   // for the strings below; held for no more than their change
    std::string body_;          // reaches the e-mail through setLogo alone
    std::string logDirectory_;  // in the ANSI code page
};

// "An error occurred", in Hungarian, as the bytes that both Central and Western European code pages
// read alike.
extern const char* const kErrorTitle;

}  // namespace tv
