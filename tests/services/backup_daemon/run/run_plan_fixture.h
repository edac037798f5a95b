// A plan with nothing around it but recordings, a memory and figures that tests look into.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "copy_ledger.h"
#include "hand_clock.h"
#include "order_text.h"
#include "recording_world.h"
#include "sample_goal.h"
#include "services/backup_daemon/run/run_plan.h"

using Texts = std::vector<std::string>;

/// Lanes are numbers here: what a test does not name is lane 1.
class RunPlanTest : public testing::Test {
protected:
    /// Made of the goal as it is at the first call, and told where copies go.
    services::RunPlan& plan() {
        if (plan_) return *plan_;
        for (const auto& channel : goal.channels)
            world.place.cameras.emplace(channel.guid, channel.folder);
        plan_.emplace(goal, places, memory, tally);
        if (goal.channels.empty()) return *plan_;
        next();
        carry_out();
        return *plan_;
    }

    /// The next order for a lane, as text; "" when there is none for now.
    std::string next(services::LaneId lane = 1) {
        plan().settle();
        const auto order = plan().next(lane);
        if (!order) return "";
        orders_[lane] = *order;
        return text_of(*order);
    }

    void say(const services::Report& report, services::LaneId lane = 1) {
        EXPECT_TRUE(plan().take(lane, report)) << "report " << report.index();
    }

    /// Has a lane carry out the order that it was given last.
    void carry_out(services::LaneId lane = 1) {
        for (const auto& report : world.carry_out(orders_.at(lane))) say(report, lane);
    }

    /// Goes on until a lane gets an order that begins so; "" when there is none.
    std::string next_that(const std::string& beginning, services::LaneId lane = 1) {
        for (std::string order = next(lane); !order.empty(); order = next(lane)) {
            if (order.starts_with(beginning)) return order;
            carry_out(lane);
        }
        return "";
    }

    /// Carries out all that there is to do, by one lane; gives the orders.
    Texts rest() {
        Texts orders;
        for (std::string order = next(); !order.empty(); order = next()) {
            orders.push_back(order);
            carry_out();
        }
        return orders;
    }

    /// The same; gives those orders that begin so.
    Texts rest_that(const std::string& beginning) {
        Texts orders = rest();
        std::erase_if(orders, [&](const std::string& o) { return !o.starts_with(beginning); });
        return orders;
    }

    services::FailureStep fail(services::FailureKind kind, services::LaneId lane = 1,
                               const std::string& text = "it failed") {
        return plan().fail(lane, {kind, text});
    }

    /// Those of one kind since the last call; the others are gone as well.
    Texts notes(services::RunEvent event) {
        Texts found;
        for (const auto& note : plan().take_notes())
            if (note.event == event) found.push_back(note.detail);
        return found;
    }

    /// "2 done, 0 failed, 1 left; 200 of 300 bytes"
    std::string counts() const {
        const auto figures = tally.figures("");
        return std::to_string(figures.files_done) + " done, " +
               std::to_string(figures.files_failed) + " failed, " +
               std::to_string(figures.files_left) + " left; " + std::to_string(figures.bytes_done) +
               " of " + std::to_string(figures.bytes_planned) + " bytes";
    }

    services::RunGoal goal = sample_goal();
    RecordingWorld world;
    CopyLedger ledger;
    LedgerPlaces places{ledger};
    LedgerMemory memory{ledger};
    HandClock clock;
    services::RunTally tally{clock};

private:
    std::optional<services::RunPlan> plan_;
    std::map<services::LaneId, services::Order> orders_;
};
