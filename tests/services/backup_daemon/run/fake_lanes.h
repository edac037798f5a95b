// Lanes that tests play by hand; they see to it that a run keeps its contract with them.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "services/backup_daemon/run/lane_pool.h"

/// The lanes of one run. Outlives their pool, and so shows what became of them. Whatever the run
/// does against the contract of LanePool, or more than it may, fails the test.
class FakeLanes {
public:
    using LaneId = services::LaneId;

    /// @param most how many lanes there may be at one time
    explicit FakeLanes(int most) : most_(static_cast<std::size_t>(most)) {}
    FakeLanes(const FakeLanes&) = delete;
    FakeLanes& operator=(const FakeLanes&) = delete;

    /// The pool to hand to the run. Once.
    std::unique_ptr<services::LanePool> pool();

    /// No lane can be opened as long as this is set: what is thrown then says it.
    std::optional<std::string> none_to_be_had;

    // What the run has done.

    /// Lanes that are there, the oldest first.
    std::vector<LaneId> open() const;
    std::vector<LaneId> dropped() const { return dropped_; }
    bool is_ready(LaneId lane) const { return lanes_.at(lane).ready; }
    bool is_open(LaneId lane) const { return lanes_.contains(lane); }
    /// The order that a lane is at; null when it has none.
    const services::Order* order(LaneId lane) const;
    /// The how manieth order, of all that were given, a lane is at.
    int order_number(LaneId lane) const { return lanes_.at(lane).number; }
    int opened() const { return newest_; }
    /// Every order that was given, in their sequence.
    const std::vector<services::Order>& given() const { return given_; }
    bool pool_is_gone() const { return gone_; }
    /// How often a lane has said of a file on the share that it has copied it, as it was ordered.
    int said_copied(const std::string& target) const;
    /// Whether a lane has said of a file on the share that it has removed it, as it was ordered.
    bool said_removed(const std::string& file) const { return removed_.contains(file); }

    /// Whether a lane has found the share full.
    bool said_full() const { return said_full_; }

    // What lanes do. A lane need not be there any more afterwards.

    /// A report of any kind; one that ends an order leaves the lane without one. Ready makes it
    /// ready.
    void report(LaneId lane, const services::Report& report);
    void fail(LaneId lane, services::FailureKind kind, const std::string& text = "it failed");
    /// Ends by itself.
    void lose(LaneId lane, const std::string& why = "the copying process ended");

private:
    class Pool;

    struct Lane {
        bool ready = false;
        std::optional<services::Order> order;
        int number = 0;
    };

    void note_answer(const services::Order& order, const services::Report& report);
    void take_open();
    void take_order(LaneId lane, const services::Order& order);
    void take_drop(LaneId lane);

    std::size_t most_;
    services::LanePool::Listener listener_;
    bool gone_ = false;
    LaneId newest_ = 0;
    std::map<LaneId, Lane> lanes_;
    std::vector<LaneId> dropped_;
    std::vector<services::Order> given_;
    std::map<std::string, int> copied_;
    std::set<std::string> removed_;
    bool said_full_ = false;
};
