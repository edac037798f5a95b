// A copy's reading back: what it is compared with is opened here, the process reads the share.
#pragma once

#include "services/backup_daemon/run/errand.h"

namespace services {

class ReadErrand : public Errand {
public:
    explicit ReadErrand(ReadCopy order) : order_(std::move(order)) {}

    ErrandStep begin() override;

private:
    std::optional<ErrandStep> take(const WorkerReport& said) override;
    standalone::FileHandle open_source() const;

    const ReadCopy order_;
    bool reads_content_ = false;
};

}  // namespace services
