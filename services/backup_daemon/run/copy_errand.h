// A recording's copy: opened here, sent by the process, and told as it was when it was opened.
#pragma once

#include "services/backup_daemon/run/errand.h"

namespace services {

class CopyErrand : public Errand {
public:
    explicit CopyErrand(CopyJob job) : job_(std::move(job)) {}

    ErrandStep begin() override;

private:
    std::optional<ErrandStep> take(const WorkerReport& said) override;
    bool is_inside(long long offset) const { return offset >= 0 && offset <= size_; }
    bool may_note(const Noted& noted);
    std::optional<ErrandStep> finish(const Whole& whole) const;

    const CopyJob job_;
    long long size_ = 0;
    long long modified_ns_ = 0;
    long long notes_left_ = 0;  ///< each is written to the store
};

}  // namespace services
