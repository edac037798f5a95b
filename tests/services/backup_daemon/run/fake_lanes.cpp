// Lanes that tests play by hand; they see to it that a run keeps its contract with them.
#include "fake_lanes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

using namespace services;

namespace {

bool ends_an_order(const Report& report) {
    return std::holds_alternative<FoundPlace>(report) || std::holds_alternative<Days>(report) ||
           std::holds_alternative<Copied>(report) || std::holds_alternative<Removed>(report) ||
           std::holds_alternative<Room>(report) || std::holds_alternative<Done>(report) ||
           std::holds_alternative<Failed>(report) || std::holds_alternative<CopySeen>(report);
}

}  // namespace

/// What the run holds of the lanes.
class FakeLanes::Pool : public LanePool {
public:
    explicit Pool(FakeLanes& lanes) : lanes_(lanes) {}

    ~Pool() override {
        lanes_.lanes_.clear();
        lanes_.gone_ = true;
    }

    void listen(Listener listener) override {
        EXPECT_FALSE(lanes_.listener_.reported) << "a second listener";
        lanes_.listener_ = std::move(listener);
    }

    LaneId open() override {
        lanes_.take_open();
        return lanes_.newest_;
    }

    void give(LaneId lane, const Order& order) override { lanes_.take_order(lane, order); }
    void drop(LaneId lane) override { lanes_.take_drop(lane); }

private:
    FakeLanes& lanes_;
};

std::unique_ptr<LanePool> FakeLanes::pool() {
    return std::make_unique<Pool>(*this);
}

std::vector<LaneId> FakeLanes::open() const {
    std::vector<LaneId> all;
    for (const auto& [lane, state] : lanes_) all.push_back(lane);
    return all;
}

const Order* FakeLanes::order(LaneId lane) const {
    const auto& order = lanes_.at(lane).order;
    return order ? &*order : nullptr;
}

int FakeLanes::said_copied(const std::string& target) const {
    const auto found = copied_.find(target);
    return found == copied_.end() ? 0 : found->second;
}

void FakeLanes::report(LaneId lane, const Report& report) {
    Lane& state = lanes_.at(lane);
    if (std::holds_alternative<Ready>(report)) state.ready = true;
    if (state.order) note_answer(*state.order, report);
    if (ends_an_order(report)) state.order.reset();
    listener_.reported(lane, report);
}

void FakeLanes::note_answer(const Order& order, const Report& report) {
    const auto* failed = std::get_if<Failed>(&report);
    said_full_ = said_full_ || (failed && failed->kind == FailureKind::full);
    if (const auto* copy = std::get_if<CopyJob>(&order))
        copied_[copy->target] += std::holds_alternative<Copied>(report) ? 1 : 0;
    if (const auto* removal = std::get_if<RemoveFiles>(&order);
        removal && std::holds_alternative<Removed>(report))
        for (const DoomedFile& file : removal->files) removed_.insert(file.path);
}

void FakeLanes::fail(LaneId lane, FailureKind kind, const std::string& text) {
    report(lane, Failed{kind, text});
}

void FakeLanes::lose(LaneId lane, const std::string& why) {
    ASSERT_EQ(lanes_.erase(lane), 1U);
    listener_.lost(lane, why);
}

void FakeLanes::take_open() {
    EXPECT_TRUE(listener_.reported && listener_.lost) << "a lane that nobody listens to";
    EXPECT_LT(lanes_.size(), most_) << "more lanes than allowed";
    if (none_to_be_had) throw std::runtime_error(*none_to_be_had);
    lanes_[++newest_] = {};
}

void FakeLanes::take_order(LaneId lane, const Order& order) {
    const auto found = lanes_.find(lane);
    ASSERT_TRUE(found != lanes_.end()) << "an order for lane " << lane << ", which is not there";
    EXPECT_TRUE(found->second.ready) << "an order for a lane that is not connected";
    EXPECT_FALSE(found->second.order) << "a second order for lane " << lane;
    found->second.order = order;
    given_.push_back(order);
    found->second.number = static_cast<int>(given_.size());
}

/// A lane that has just ended by itself may be dropped, too.
void FakeLanes::take_drop(LaneId lane) {
    EXPECT_TRUE(lane > 0 && lane <= newest_) << "no lane was ever called " << lane;
    EXPECT_EQ(std::ranges::count(dropped_, lane), 0) << "lane " << lane << " is dropped again";
    lanes_.erase(lane);
    dropped_.push_back(lane);
}
