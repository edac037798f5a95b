// A clock that tests set by hand: alarms ring, in order, when time is moved past them.
#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "services/clock.h"

/// Outlives its alarms.
class HandClock : public services::Clock {
public:
    using Milliseconds = std::chrono::milliseconds;

    /// What the two readings begin with; nobody can take one for the other.
    static constexpr Milliseconds STEADY_START{7'000'000};
    static constexpr Milliseconds WALL_START{1'709'251'200'000};

    Milliseconds steady() const override { return now_; }
    Milliseconds wall() const override { return WALL_START + (now_ - STEADY_START); }

    std::unique_ptr<Alarm> after(Milliseconds pause, std::function<void()> action) override {
        const Place place{now_ + pause, ++newest_};
        waiting_.emplace(place, std::move(action));
        return std::make_unique<HandAlarm>(waiting_, place);
    }

    /// Moves time on. Each alarm that is due by then rings at its own time, of those of one time the
    /// older one first; so do alarms that are set meanwhile.
    void advance(Milliseconds time) {
        const Milliseconds end = now_ + time;
        while (!waiting_.empty() && waiting_.begin()->first.first <= end) {
            now_ = waiting_.begin()->first.first;
            const auto due = waiting_.extract(waiting_.begin());
            due.mapped()();
        }
        now_ = end;
    }

    /// How long it is until an alarm rings; nothing when none is set.
    std::optional<Milliseconds> next_alarm() const {
        if (waiting_.empty()) return {};
        return waiting_.begin()->first.first - now_;
    }

private:
    /// When it rings, and the how manieth alarm it is.
    using Place = std::pair<Milliseconds, int>;
    using Waiting = std::map<Place, std::function<void()>>;

    struct HandAlarm : Alarm {
        HandAlarm(Waiting& all, Place own) : waiting(all), place(own) {}
        ~HandAlarm() override { waiting.erase(place); }
        Waiting& waiting;
        Place place;
    };

    Milliseconds now_ = STEADY_START;
    int newest_ = 0;
    Waiting waiting_;
};
