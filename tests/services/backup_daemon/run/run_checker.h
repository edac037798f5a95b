// What must be true of a run at every moment, whatever happens to it.
#pragma once

#include <set>
#include <string>

#include "tests/services/backup_daemon/run/run_scene.h"

/// Watches one run from its beginning on; what is not as it must be fails the test. That a run
/// keeps to its lanes (one order each, no more than allowed, one connecting) is FakeLanes' to see,
/// that it tells nothing behind its end RunScene's.
class RunChecker {
public:
    explicit RunChecker(RunScene& scene) : scene_(scene) {}

    /// After every step of the run.
    void check();

    /// When the run has told its end.
    /// @param wanted the recordings that the run had to copy, as paths below the destination
    void check_end(const std::set<std::string>& wanted);

private:
    void check_figures();
    void check_records();
    void check_removals();
    void check_orders();
    void check_order(const services::CopyJob& order);
    void check_order(const services::RemoveFiles& order);
    bool may_go(const std::string& path) const;
    bool is_begun(const std::string& path) const;
    bool is_newest(const services::CopiedFile& copy) const;
    void check_events();
    void check_success(const std::set<std::string>& wanted);

    std::string on_share(const std::string& path) const;
    std::string below_folder(const std::string& path) const;

    RunScene& scene_;
    services::RunFigures before_;
    std::size_t records_seen_ = 0;
    std::size_t removals_seen_ = 0;
    std::size_t orders_seen_ = 0;
    std::map<std::string, int> records_;    ///< by path
    std::set<std::string> copies_ordered_;  ///< targets
};
