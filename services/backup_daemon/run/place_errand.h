// Where a run's copies go: what the markers on the share say, and a marker of this recorder's.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "services/backup_daemon/run/errand.h"

namespace services {

/// A recorder's copies go to the task's folder, unless another recorder has marked that one: then
/// to a folder of its own below it. The process hands over what markers say and makes the one that
/// it is told to; whose they are is decided here.
class PlaceErrand : public Errand {
public:
    explicit PlaceErrand(FindPlace order);

    ErrandStep begin() override;

private:
    enum class Asked { markers, claim, mending, cameras, tidying };
    using Text = std::optional<std::string>;

    std::optional<ErrandStep> take(const WorkerReport& said) override;
    ErrandStep fail(Failed failed) override;
    ErrandStep fail_to_claim(Failed failed);
    std::optional<ErrandStep> hear_texts(const Contents& said);
    std::optional<ErrandStep> hear_tidying(const WorkerReport& said) const;
    ErrandStep look();
    ErrandStep decide(const Text& own, const Text& shared);
    ErrandStep settle_at(const std::string& below, const std::string& id);
    ErrandStep claim(const std::string& below);
    ErrandStep mend(const std::string& below);
    ErrandStep tidy_up();
    std::set<std::string> folders_to_tidy() const;
    ErrandStep is_marked() const;
    ErrandStep go_unmarked(const std::string& below);

    std::string folder(const std::string& below) const;
    std::string temporary(const std::string& below) const;
    bool is_known(const std::string& below) const;
    std::string id(const std::string& below) const;
    std::string text() const;

    const FindPlace order_;
    const std::string own_;  ///< name of the folder of this recorder's own
    Asked asked_ = Asked::markers;
    int looks_ = 0;
    std::optional<std::string> in_vain_;  ///< the folder whose marker could not be had
    FoundPlace place_;
};

}  // namespace services
