// What one Initialise makes, and the rule by which calls from any thread take turns at it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "mail/TvMailMan.h"
#include "mime/TvEmail.h"
#include "settings/SettingsFile.h"

namespace tv {

// The server's settings and the message, used by one call at a time.
struct Workbench {
    Workbench();
    // An open connection gets a short good-bye.
    ~Workbench();
    Workbench(const Workbench&) = delete;
    Workbench& operator=(const Workbench&) = delete;

    // Empties the message. One that an exception cut short is made up for before the next turn:
    // nobody of the old message may stay among the recipients of the new one.
    void resetEmail();
    bool resetUnfinished() const { return resetUnfinished_; }

    TvMailMan mailMan;
    TvEmail email;
    settings::SettingsFile settingsFile;
    std::string missingAttachment;  // why one of the message could not be added; UTF-8

private:
    bool resetUnfinished_ = false;

    // The slot's business, under its lock.
    friend class WorkbenchSlot;
    uint64_t worker_ = 0;  // thread that has its turn; 0: nobody
};

// Holds the workbench of the moment. Whoever works on one that is replaced meanwhile finishes
// there, and the last to leave takes it down.
class WorkbenchSlot {
public:
    class Turn;

    // Never waits for a turn; for the good-bye of the old workbench where nobody works on it.
    void replace(std::shared_ptr<Workbench> fresh);
    // For tests: null before the first replace.
    Workbench* current();

private:
    std::shared_ptr<Workbench> take();
    void giveBack(Workbench& bench);

    std::mutex lock_;
    std::condition_variable changed_;
    std::shared_ptr<Workbench> current_;
};

// One call's time alone at the workbench of the moment; none before the first replace. Waits while
// another thread has its turn, but at the new workbench as soon as there is one. Within a turn of
// the same thread, where waiting would never end, it throws std::logic_error: host code must not
// run inside a turn, and what may bring it there is a hook or an asynchronous call of the system.
class WorkbenchSlot::Turn {
public:
    explicit Turn(WorkbenchSlot& slot);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    explicit operator bool() const { return bench_ != nullptr; }
    Workbench& operator*() const { return *bench_; }
    Workbench* operator->() const { return bench_.get(); }

private:
    WorkbenchSlot& slot_;
    const std::shared_ptr<Workbench> bench_;
};

}  // namespace tv
