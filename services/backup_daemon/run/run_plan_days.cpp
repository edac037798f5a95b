// What a run's plan does about its days: finds them, measures them, looks at them before copying.
#include <algorithm>
#include <cstdint>
#include <utility>

#include "services/backup_daemon/run/run_plan.h"

namespace services {
namespace {

// Days that are looked at by one order as long as they are empty.
constexpr std::size_t LONGEST_ROW = 2048;

// A day's digits take 27 bits, and its place has the ones behind them.
constexpr int PLACE_BITS = 36;
constexpr std::uint64_t PLACE_MASK = (std::uint64_t{1} << PLACE_BITS) - 1;

/// The digits of a day's name as a number: less than those of every later day.
std::uint64_t digits_of(const std::array<char, 10>& name) {
    std::uint64_t digits = 0;
    for (const char letter : name)
        if (letter != '-') digits = digits * 10 + static_cast<std::uint64_t>(letter - '0');
    return digits;
}

}  // namespace

void RunPlan::plan_finding_days() {
    folders_ = std::make_shared<std::vector<ChannelFolder>>();
    for (const SelectedChannel& channel : goal_.channels) {
        folders_->push_back({.recordings = channel.recordings, .disk = ""});
        ready_.emplace_back().what = FindDays{&channel};
    }
}

/// As much as all lanes can be given: ten years of 128 cameras have half a million days. They are
/// measured camera by camera: an order for a row of days then opens one camera's folder.
void RunPlan::measure_ahead() {
    const auto enough = static_cast<std::size_t>(std::max(goal_.lanes, goal_.lanes_far));
    while (ready_.size() < enough && next_day_ < days_.size()) {
        const std::size_t end = std::min(next_day_ + 1 + likely_empty_, days_.size());
        ready_.push_back({LookAtDay{.day = next_day_, .end = end}});
        next_day_ = end;
    }
}

/// Measured: from here on the oldest day comes first, whichever camera's it is. What is sorted are
/// numbers, for half a million days take a while to be moved about.
void RunPlan::sort_days() {
    std::vector<std::uint64_t> turns;
    turns.reserve(days_.size());
    for (const Day& day : days_) turns.push_back(digits_of(day.name) << PLACE_BITS | turns.size());
    std::ranges::sort(turns);
    std::vector<Day> sorted;
    sorted.reserve(days_.size());
    for (const std::uint64_t turn : turns) sorted.push_back(days_[turn & PLACE_MASK]);
    days_ = std::move(sorted);
    next_day_ = 0;
}

/// Looks at the next day before the lanes run out of files.
void RunPlan::look_ahead() {
    if (phase_ == Phase::measuring) measure_ahead();
    if (phase_ != Phase::copying || room_.in_the_making || next_day_ == days_.size()) return;
    if (ready_.size() >= static_cast<std::size_t>(goal_.lanes)) return;
    const auto given_listing = [](const auto& lane) { return is_listing(lane.second); };
    if (std::ranges::any_of(ready_, is_listing) || std::ranges::any_of(given_, given_listing))
        return;
    const std::size_t end = end_of_row(next_day_);
    ready_.push_front({LookAtDay{.day = next_day_, .end = end, .to_copy = true}});
    next_day_ = end;
}

/// Behind a day with recordings nobody looks at once: it will hardly have lost them since.
std::size_t RunPlan::end_of_row(std::size_t day) const {
    const std::size_t longest = std::min(day + 1 + LONGEST_ROW, days_.size());
    if (!days_[day].empty) return day + 1;
    while (++day < longest && days_[day].empty) continue;
    return day;
}

ListDay RunPlan::order_of(LookAtDay& look) const {
    const ChannelDay where = this->where(look.day);
    ListDay order{.recordings = where.channel->recordings,
                  .day = where.day,
                  .normal = goal_.selection.normal,
                  .alarm = goal_.selection.alarm,
                  .remote = names_.on_share(ShareNames::day_folder(where)),
                  .ask_share = look.to_copy || goal_.is_preview(),
                  .folders = folders_,
                  .empty_since = measured_since_};
    const std::size_t first = look.day + 1;
    const std::size_t end = look.to_copy ? look.end : std::min(first + likely_empty_, look.end);
    look.asked = end - first;
    order.beyond.reserve(look.asked);
    for (std::size_t number = first; number < end; ++number) {
        const Day& day = days_[number];
        order.beyond.push_back({.folder = place_of(day.channel),
                                .day = {day.name.begin(), day.name.end()},
                                .empty = day.stamp});
    }
    return order;
}

ChannelDay RunPlan::where(std::size_t day) const {
    const Day& found = days_[day];
    return {found.channel, {found.name.begin(), found.name.end()}};
}

std::size_t RunPlan::place_of(const SelectedChannel* channel) const {
    return static_cast<std::size_t>(channel - goal_.channels.data());
}

std::string& RunPlan::disk_of(const SelectedChannel* channel) const {
    return (*folders_)[place_of(channel)].disk;
}

RunPlan::Answer RunPlan::answer(FindDays& find, const Days& days) {
    for (const std::string& day : days.names) {
        Day& found = days_.emplace_back(Day{.channel = find.channel, .name = {}});
        day.copy(found.name.data(), found.name.size());
    }
    disk_of(find.channel) = days.disk;
    newest_recording_ = std::max(newest_recording_, days.newest);
    return Answer::whole;
}

RunPlan::Answer RunPlan::answer(LookAtDay& look, const Entries& entries) {
    if (entries.empty.size() > look.asked) return Answer::nonsense;
    look.found.insert(look.found.end(), entries.entries.begin(), entries.entries.end());
    look.disk = entries.disk;
    look.empty = entries.empty;
    if (!look.empty.empty() && measured_since_.now_ns == 0) measured_since_ = entries.looked_at;
    return Answer::part;
}

/// A sign of life between two questions about a long day.
RunPlan::Answer RunPlan::answer(LookAtDay&, const At&) {
    return Answer::part;
}

RunPlan::Answer RunPlan::answer(LookAtDay& look, const Done&) {
    if (!stopped_.empty()) return Answer::whole;
    Day& day = days_[look.day];
    const ChannelDay where = this->where(look.day);
    give_up_doubles(look);
    const auto recorded = look.found.empty()
                              ? std::map<std::string, CopiedFile>()
                              : memory_.copied_in(ShareNames::day_folder(where) + "/");
    FileAmount to_copy;
    FileAmount to_compare;
    for (const DayEntry& entry : look.found) {
        const auto known = recorded.find(ShareNames::copy_path(where, entry));
        const CopiedFile* copy = known == recorded.end() ? nullptr : &known->second;
        const Need need = need_of(goal_, entry, copy, look.to_copy || goal_.is_preview());
        if (need == Need::nothing) {
            if (look.to_copy && !copy->removed) tally_.kept(entry.size);
            continue;
        }
        FileAmount& amount = need == Need::copy ? to_copy : to_compare;
        ++amount.files;
        amount.bytes += entry.size;
        if (!look.to_copy) continue;
        CopyFile work = copy_work(goal_, names_, where, entry, copy);
        work.day = look.day;
        ready_.push_back({std::move(work)});
    }
    count_day(day, to_copy, to_compare);
    pass_row(look);
    if (look.found.empty() && !is_there(day, look.disk))
        ready_.push_front({SeekRecordings{look.day}});
    return Answer::whole;
}

/// Whether an empty day's folder is on the disk that it was on: then it is a day that is left, and
/// nobody has to ask for others.
bool RunPlan::is_there(const Day& day, const std::string& disk) {
    return !disk.empty() && disk == disk_of(day.channel);
}

/// The recorder removes its oldest days by itself. Where no day is left of several, or the folder
/// has become another one, the disk has gone, and what lay on it is not to be taken for nothing.
RunPlan::Answer RunPlan::answer(SeekRecordings& seek, const Days& days) {
    const SelectedChannel* channel = days_[seek.day].channel;
    if (days.newest.empty())
        give_up_day(seek.day, channel->recordings + ": has no recordings any more");
    else if (days.disk != disk_of(channel))
        give_up_day(seek.day,
                    channel->recordings + ": is another folder than it was, or another disk");
    return Answer::whole;
}

/// Of recordings that would get one name on the share, each would replace the one before.
void RunPlan::give_up_doubles(LookAtDay& look) {
    const ChannelDay where = this->where(look.day);
    for (const DayEntry& entry : take_doubles(goal_, where, look.found)) {
        if (!look.to_copy) continue;
        tally_.plan(1, 0);
        const std::string path = ShareNames::copy_path(where, entry);
        give_up_file({}, path + ": another recording of the day has this name on the share", path);
    }
}

/// What was measured gives way to what is found now.
void RunPlan::count_day(Day& day, const FileAmount& to_copy, const FileAmount& to_compare) {
    const FileAmount before = std::exchange(day.to_copy, to_copy);
    const FileAmount compared_before = std::exchange(day.to_compare, to_compare);
    tally_.plan(to_copy.files + to_compare.files - before.files - compared_before.files,
                to_copy.bytes + to_compare.bytes - before.bytes - compared_before.bytes);
}

/// A day is looked at twice, and counts once.
void RunPlan::give_up_day(std::size_t number, const std::string& why) {
    Day& day = days_[number];
    count_day(day, {}, {});
    if (std::exchange(day.unread, true)) return;
    tally_.plan(1, 0);
    give_up_file({}, why);
}

/// Days beyond a look's own have turned out to be empty: there is nothing to do about them. The
/// first that is not has its own look next. How long the next rows are follows how long these were,
/// so that days with recordings cost nothing for it.
void RunPlan::pass_row(const LookAtDay& look) {
    const std::size_t next = look.day + 1 + look.empty.size();
    if (!look.to_copy) note_empty(look);
    if (next == look.end || !stopped_.empty()) return;
    if (look.to_copy)
        next_day_ = next;  // whose look waits until the lanes run out of files
    else
        ready_.push_front({LookAtDay{.day = next, .end = look.end}});
}

void RunPlan::note_empty(const LookAtDay& look) {
    std::size_t day = look.day;
    for (const standalone::FolderStamp& stamp : look.empty) {
        days_[++day].empty = true;
        days_[day].stamp = stamp;
    }
    const bool goes_on = look.found.empty() && look.empty.size() == look.asked;
    likely_empty_ = goes_on ? std::min(2 * look.asked + 1, LONGEST_ROW) : look.empty.size();
}

}  // namespace services
