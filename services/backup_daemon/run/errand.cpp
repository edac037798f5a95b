// One order on its way through a lane: what the daemon does of it itself, what it asks the copying
// process, and which of that one's answers fit.
#include "services/backup_daemon/run/errand.h"

#include <algorithm>
#include <utility>

#include "platform/standalone/store/recording_folder.h"
#include "platform/standalone/store/utf8.h"
#include "services/backup_daemon/run/copy_errand.h"
#include "services/backup_daemon/run/day_errand.h"
#include "services/backup_daemon/run/place_errand.h"
#include "services/backup_daemon/run/read_errand.h"

namespace services {
namespace {

constexpr char LAST_OF_ALL_DAYS[] = "9999-12-31";

// Longer than the longest path with what went wrong there.
constexpr std::size_t LONGEST_WORDS = 6000;

/// Words that people will read: short enough, one line, valid UTF-8.
std::string readable(const std::string& words) {
    std::string text = standalone::valid_utf8(words.substr(0, LONGEST_WORDS));
    std::ranges::replace_if(
        text, [](unsigned char byte) { return byte < ' ' || byte == 0x7f; }, '?');
    return text;
}

class Connecting : public Errand {
public:
    ErrandStep begin() override { return {}; }

private:
    std::optional<ErrandStep> take(const WorkerReport& said) override {
        const auto* ready = std::get_if<Ready>(&said);
        if (!ready) return {};
        return ErrandStep{.tell = {*ready}, .over = true};
    }
};

/// Needs no process.
class DaysErrand : public Errand {
public:
    explicit DaysErrand(ListDays order) : order_(std::move(order)) {}

    ErrandStep begin() override {
        try {
            return {.tell = {list()}, .over = true};
        } catch (const standalone::UnreadableFolder& error) {
            return {.tell = {Failed{FailureKind::source, error.what()}}, .over = true};
        }
    }

private:
    std::optional<ErrandStep> take(const WorkerReport&) override { return {}; }

    Days list() const {
        Days days{standalone::recording_days(order_.recordings, "", LAST_OF_ALL_DAYS)};
        days.disk = disk_of(order_.recordings);
        if (!days.names.empty()) days.newest = days.names.back();
        std::erase_if(days.names, [this](const std::string& day) {
            return day < order_.first || day > order_.last;
        });
        return days;
    }

    const ListDays order_;
};

class RemovalErrand : public Errand {
public:
    explicit RemovalErrand(RemoveFiles order) : order_(std::move(order)) {}

    ErrandStep begin() override { return {.ask = order_}; }

private:
    std::optional<ErrandStep> take(const WorkerReport& said) override {
        if (const auto* removed = std::get_if<Removed>(&said)) return finish(*removed);
        const auto* alive = std::get_if<At>(&said);
        if (!alive || alive->offset != 0 || alive->begins) return {};
        return ErrandStep{.tell = {*alive}};
    }

    std::optional<ErrandStep> finish(const Removed& removed) const {
        if (removed.files.size() != order_.files.size()) return {};
        return ErrandStep{.tell = {removed}, .over = true};
    }

    const RemoveFiles order_;
};

class RoomErrand : public Errand {
public:
    explicit RoomErrand(AskRoom order) : order_(order) {}

    ErrandStep begin() override { return {.ask = order_}; }

private:
    std::optional<ErrandStep> take(const WorkerReport& said) override {
        const auto* found = std::get_if<Room>(&said);
        if (!found || !can_be(*found)) return {};
        return ErrandStep{.tell = {*found}, .over = true};
    }

    static bool can_be(const Room& found) {
        return !found.room || (found.room->free >= 0 && found.room->total >= 0);
    }

    const AskRoom order_;
};

/// What the next run writes again: a failure does not matter as long as the connection is good.
class TextErrand : public Errand {
public:
    explicit TextErrand(WriteText order) : order_(std::move(order)) {}

    ErrandStep begin() override { return {.ask = order_}; }

private:
    std::optional<ErrandStep> take(const WorkerReport& said) override {
        if (!std::holds_alternative<Done>(said)) return {};
        return ErrandStep{.tell = {Done()}, .over = true};
    }

    ErrandStep fail(Failed failed) override {
        if (ends_connection(failed.kind)) return Errand::fail(std::move(failed));
        return {.tell = {Done()}, .over = true};
    }

    const WriteText order_;
};

std::unique_ptr<Errand> make(const FindPlace& order) {
    return std::make_unique<PlaceErrand>(order);
}

std::unique_ptr<Errand> make(const WriteText& order) {
    return std::make_unique<TextErrand>(order);
}

std::unique_ptr<Errand> make(const AskRoom& order) {
    return std::make_unique<RoomErrand>(order);
}

std::unique_ptr<Errand> make(const ListDays& order) {
    return std::make_unique<DaysErrand>(order);
}

std::unique_ptr<Errand> make(const ListDay& order) {
    return std::make_unique<DayErrand>(order);
}

std::unique_ptr<Errand> make(const CopyJob& order) {
    return std::make_unique<CopyErrand>(order);
}

std::unique_ptr<Errand> make(const ReadCopy& order) {
    return std::make_unique<ReadErrand>(order);
}

std::unique_ptr<Errand> make(const RemoveFiles& order) {
    return std::make_unique<RemovalErrand>(order);
}

}  // namespace

ErrandStep Errand::start() {
    try {
        return begin();
    } catch (const std::exception& error) {
        return fail({FailureKind::other, readable(error.what())});
    }
}

std::optional<ErrandStep> Errand::hear(const WorkerReport& said) {
    const auto* failed = std::get_if<Failed>(&said);
    if (!failed) return take(said);
    return fail({failed->kind, readable(failed->text)});
}

std::unique_ptr<Errand> connecting() {
    return std::make_unique<Connecting>();
}

std::unique_ptr<Errand> errand_of(const Order& order) {
    return std::visit([](const auto& which) { return make(which); }, order);
}

}  // namespace services
