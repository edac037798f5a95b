// One run of random recordings and settings, through whatever random trouble it meets.
#pragma once

#include <functional>
#include <random>
#include <set>
#include <string>

#include "tests/services/backup_daemon/run/run_checker.h"

/// Everything about it follows from the seed. Every step is checked; failures are the test's.
class RandomRun {
public:
    explicit RandomRun(unsigned seed);

    /// Some hundred steps in which anything may go wrong; the run may end in them.
    void trouble();

    // How it ends then.

    /// Nothing goes wrong any more: it must end in so many steps.
    void calm_down();
    /// No lane gets through to the server any more: it must end in so much time.
    void lose_server();
    /// The memory answers no call any more: it must end in so much time.
    void lose_memory();

    services::RunOutcome outcome() const { return scene_.outcome(); }
    long long files_done() const { return scene_.figures().files_done; }

private:
    int below(int count);
    bool chance(int percent) { return below(100) < percent; }
    static services::RunGoal goal_of(std::mt19937& random);

    void record_days();
    void record_day(const services::SelectedChannel& channel, const std::string& day);
    void make_empty_day(const services::SelectedChannel& channel);
    void remember(const std::string& path, const std::string& day, long long size);
    void add_old_copies();

    void checked(const std::function<void()>& step);
    services::LaneId random_lane();
    void make_trouble();
    void pass_time(std::chrono::milliseconds time);
    void trouble_lane(services::LaneId lane);
    void say_nonsense(services::LaneId lane);
    void change_world();
    void change_memory();
    void expect_end_within(std::chrono::minutes time, const std::function<void()>& step);

    std::mt19937 random_;
    RunScene scene_;
    RunChecker checker_;
    std::set<std::string> wanted_;
    struct Recording {
        std::string folder;
        std::string day;
        std::string name;
        std::string path;
    };
    std::vector<Recording> recordings_;
    std::vector<Recording> empty_;  ///< that there is not yet, in days whose folders are empty
};
