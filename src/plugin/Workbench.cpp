// Making, emptying and leaving a workbench, and the waiting for it.
#include "plugin/Workbench.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "mail/ClsMailMan.h"
#include "platform/SysModule.h"
#include "platform/SysThread.h"
#include "plugin/PlainException.h"

namespace tv {
namespace {

// How long a connection that is dropped waits for each of its good-byes. A host does not expect a
// call that only resets things to wait for a server.
constexpr uint32_t kFarewellMs = 500;

}  // namespace

Workbench::Workbench() : settingsFile(plat::modulePath()) {
    email.put_Utf8(true);
    // What is wrong with the file is told by the send that it stops.
    std::ignore = settingsFile.refresh();
}

Workbench::~Workbench() {
    uint32_t& limit = mailMan.impl().settings().idleTimeoutMs;
    limit = limit == 0 ? kFarewellMs : std::min(limit, kFarewellMs);
}

void Workbench::resetEmail() {
    resetUnfinished_ = true;
    email.ClearBcc();
    email.ClearCC();
    email.ClearTo();
    email.KeepFrom();
    email.put_Subject("");
    email.RemovePlainTextAlternative();
    email.RemoveHtmlAlternative();
    email.DropAttachments();
    email.DropRelatedItems();
    missingAttachment.clear();
    resetUnfinished_ = false;
}

void WorkbenchSlot::replace(std::shared_ptr<Workbench> fresh) {
    {
        const std::lock_guard guard(lock_);
        current_.swap(fresh);
    }
    changed_.notify_all();
}

Workbench* WorkbenchSlot::current() {
    const std::lock_guard guard(lock_);
    return current_.get();
}

std::shared_ptr<Workbench> WorkbenchSlot::take() {
    const uint64_t thread = plat::currentThread();
    std::unique_lock guard(lock_);
    while (current_ && current_->worker_ != 0) {
        if (current_->worker_ == thread) {
            throw PlainException("A function was called from within another one.");
        }
        changed_.wait(guard);
    }
    if (current_) current_->worker_ = thread;
    return current_;
}

void WorkbenchSlot::giveBack(Workbench& bench) {
    {
        const std::lock_guard guard(lock_);
        bench.worker_ = 0;
    }
    changed_.notify_all();
}

WorkbenchSlot::Turn::Turn(WorkbenchSlot& slot) : slot_(slot), bench_(slot.take()) {
    if (!bench_ || !bench_->resetUnfinished()) return;
    try {
        bench_->resetEmail();
    } catch (...) {
        slot_.giveBack(*bench_);
        throw;
    }
}

WorkbenchSlot::Turn::~Turn() {
    if (bench_) slot_.giveBack(*bench_);
}

}  // namespace tv
