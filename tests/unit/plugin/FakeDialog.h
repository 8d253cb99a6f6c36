// Keeps what the user would have been shown, from whatever thread.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/SysDialog.h"

namespace tv {

class FakeDialog final : public plat::SysDialog {
public:
    FakeDialog() = default;
    ~FakeDialog() override { plat::replaceSysDialog(before_); }
    FakeDialog(const FakeDialog&) = delete;
    FakeDialog& operator=(const FakeDialog&) = delete;

    void showError(const char* titleBytes, std::string_view text) override {
        {
            const std::lock_guard guard(lock_);
            texts.push_back(titleBytes + std::string(": ").append(text));
        }
        if (whileOpen) whileOpen();
    }

    std::function<void()> whileOpen;  // what the host's timers do
    std::vector<std::string> texts;   // title and text

private:
    std::mutex lock_;
    plat::SysDialog* before_ = plat::replaceSysDialog(this);
};

}  // namespace tv
