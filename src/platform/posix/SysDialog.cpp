// One line on stderr: a library has no other place to tell its user something.
#include "platform/SysDialog.h"

#include <errno.h>
#include <unistd.h>

#include "platform/Replaceable.h"

namespace tv::plat {
namespace {

class StderrLine final : public SysDialog {
public:
    void showError(const char*, std::string_view text) override {
        const std::string line = "emailsending: " + asOneLine(text) + "\n";
        size_t done = 0;
        while (done < line.size()) {
            const ssize_t wrote = write(STDERR_FILENO, line.data() + done, line.size() - done);
            if (wrote > 0) {
                done += static_cast<size_t>(wrote);
            } else if (wrote == 0 || errno != EINTR) {
                return;
            }
        }
    }
};

}  // namespace

SysDialog& sysDialog() {
    return Replaceable<SysDialog>::get<StderrLine>();
}

}  // namespace tv::plat
