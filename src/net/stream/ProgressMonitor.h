// What a caller may hear of a running operation, and how it stops one.
#pragma once

#include <cstdint>
#include <string_view>

namespace tv {

class ProgressMonitor {
public:
    virtual ~ProgressMonitor() = default;
    // Asked between slices of every wait and between steps: true stops the operation.
    virtual bool abortRequested() = 0;
    // How often it wants to be asked while an operation waits; 0: three times a second.
    virtual uint32_t heartbeatMs() const { return 0; }
    // Bytes of done out of total; total is an estimate and done may pass it.
    virtual void progress(uint64_t done, uint64_t total) = 0;
    // A named event of the dialogue ("SocketConnect", "SmtpCmdSent", ...). Never carries a secret.
    virtual void textEvent(std::string_view name, std::string_view text) = 0;
};

}  // namespace tv
