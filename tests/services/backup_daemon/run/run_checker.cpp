// What must be true of a run at every moment, whatever happens to it.
#include "tests/services/backup_daemon/run/run_checker.h"

#include <gtest/gtest.h>

using namespace services;

namespace {

// What people read in the log of one run, at most.
constexpr std::size_t MOST_TOLD = 10;

}  // namespace

void RunChecker::check() {
    check_figures();
    check_records();
    check_removals();
    check_orders();
    check_events();
}

/// Planned files are done, failed or left. How many are planned nobody tells; but whatever was
/// ordered is among them.
void RunChecker::check_figures() {
    const RunFigures now = scene_.figures();
    EXPECT_GE(now.files_done, before_.files_done);
    EXPECT_GE(now.files_failed, before_.files_failed);
    EXPECT_GE(now.files_left, 0);
    EXPECT_GE(now.bytes_done, 0);
    EXPECT_GE(now.bytes_planned, 0);
    EXPECT_GE(now.rate, 0);
    EXPECT_GE(now.percent, before_.percent) << "the percent fell";
    EXPECT_LE(now.percent, 100);
    EXPECT_TRUE(now.percent < 100 || now.files_left == 0) << now.files_left << " left";
    const auto missing = static_cast<long long>(scene_.goal.missing_channels.size());
    const auto ordered = static_cast<long long>(copies_ordered_.size());
    EXPECT_GE(now.files_done + now.files_failed - missing + now.files_left, ordered);
    before_ = now;
}

/// No file is done that no lane reported as copied and no memory knows.
void RunChecker::check_records() {
    const auto& recorded = scene_.ledger.recorded;
    for (; records_seen_ < recorded.size(); ++records_seen_) {
        const std::string& path = recorded[records_seen_];
        EXPECT_LE(++records_[path], scene_.lanes.said_copied(on_share(path))) << path;
        const CopiedFile& copy = scene_.ledger.copies.at(path);
        EXPECT_NE(path.find("/" + copy.day + "/"), std::string::npos) << path;
    }
    EXPECT_EQ(static_cast<std::size_t>(scene_.figures().files_done), recorded.size());
    EXPECT_EQ(records_.size(), recorded.size()) << "a file was copied twice";
}

/// The memory hears of no removal that no lane reported.
void RunChecker::check_removals() {
    const auto& gone = scene_.ledger.gone;
    for (; removals_seen_ < gone.size(); ++removals_seen_)
        EXPECT_TRUE(scene_.lanes.said_removed(on_share(gone[removals_seen_])))
            << gone[removals_seen_];
}

void RunChecker::check_orders() {
    const auto& given = scene_.lanes.given();
    for (; orders_seen_ < given.size(); ++orders_seen_) {
        const Order& order = given[orders_seen_];
        if (const auto* copy = std::get_if<CopyJob>(&order)) check_order(*copy);
        if (const auto* removal = std::get_if<RemoveFiles>(&order)) check_order(*removal);
    }
}

/// A temporary file is known before it is made, and a file that is done is not sent again.
void RunChecker::check_order(const CopyJob& order) {
    copies_ordered_.insert(order.target);
    const std::string path = below_folder(order.target);
    EXPECT_FALSE(records_.contains(path)) << path;
    const auto made = scene_.ledger.checkpoints.find(path);
    ASSERT_TRUE(made != scene_.ledger.checkpoints.end()) << path;
    EXPECT_EQ(on_share(made->second.temporary), order.temporary);
    EXPECT_EQ(made->second.offset, order.offset);
}

void RunChecker::check_order(const RemoveFiles& order) {
    for (const DoomedFile& file : order.files)
        EXPECT_TRUE(may_go(below_folder(file.path))) << file.path;
    for (const std::string& folder : order.folders)
        EXPECT_TRUE(std::ranges::any_of(order.files, [&](const DoomedFile& file) {
            return file.path.starts_with(folder + "/");
        })) << folder;
}

/// Only what the memory listed: the oldest day as long as there is something to copy, and what is
/// too old or left over when there is nothing any more. What was begun may go as soon as a lane has
/// found the share full. No copy goes when anything has failed or the share is full for good.
bool RunChecker::may_go(const std::string& path) const {
    const CopyLedger& ledger = scene_.ledger;
    const bool full = !scene_.told(SHARE_FULL).empty();
    if (is_begun(path)) return scene_.lanes.said_full() || scene_.figures().files_left == 0;
    if (full || scene_.figures().files_failed > 0 || !ledger.spoilt.empty()) return false;
    if (scene_.figures().files_left > 0)
        return scene_.goal.when_full == WhenFull::remove_oldest &&
               ledger.of_oldest_day.contains(path) && ledger.half_removed.contains(path);
    const auto too_old = ledger.older_than.find(scene_.goal.first_kept_day);
    return too_old != ledger.older_than.end() && too_old->second.contains(path);
}

/// A temporary file, or its description's.
bool RunChecker::is_begun(const std::string& path) const {
    return std::ranges::any_of(scene_.ledger.checkpoints, [&](const auto& one) {
        return path == one.second.temporary || path == one.second.temporary + ".json";
    });
}

void RunChecker::check_events() {
    EXPECT_LE(scene_.told(CONNECTION_LOST).size(), MOST_TOLD);
    EXPECT_LE(scene_.told(FILE_NOT_COPIED).size(), MOST_TOLD);
    EXPECT_LE(scene_.told(COPY_SPOILT).size(), MOST_TOLD);
    EXPECT_LE(scene_.told(RETENTION_PASS).size(), 1U);
    EXPECT_LE(scene_.told(SHARE_FULL).size(), 1U);
    EXPECT_LE(scene_.connected, 1);
    EXPECT_LE(scene_.ends.size(), 1U);
}

void RunChecker::check_end(const std::set<std::string>& wanted) {
    ASSERT_EQ(scene_.ends.size(), 1U);
    EXPECT_TRUE(scene_.lanes.pool_is_gone());
    EXPECT_EQ(scene_.figures().message, scene_.why());
    const bool needs_reason =
        scene_.outcome() == RunOutcome::failed || scene_.outcome() == RunOutcome::interrupted;
    EXPECT_EQ(needs_reason, !scene_.why().empty());
    if (scene_.outcome() == RunOutcome::success) check_success(wanted);
}

/// All that was wanted is there, nothing is there that is too old, and nothing is half done.
void RunChecker::check_success(const std::set<std::string>& wanted) {
    const CopyLedger& ledger = scene_.ledger;
    const RunFigures figures = scene_.figures();
    EXPECT_EQ(figures.files_left, 0);
    EXPECT_EQ(figures.files_failed, 0);
    EXPECT_EQ(figures.bytes_done, figures.bytes_planned);
    EXPECT_EQ(figures.percent, figures.bytes_planned > 0 ? 100 : 0);
    EXPECT_EQ(copies_ordered_.size(), ledger.recorded.size());
    EXPECT_TRUE(ledger.checkpoints.empty());
    for (const std::string& path : wanted) EXPECT_TRUE(ledger.copies.contains(path)) << path;
    for (const auto& [path, copy] : ledger.copies)
        EXPECT_TRUE(copy.removed || ledger.foreign.contains(path) || is_newest(copy) ||
                    copy.day >= scene_.goal.first_kept_day)
            << path << " is too old";
    const bool retains = !scene_.goal.first_kept_day.empty();
    EXPECT_EQ(scene_.told(RETENTION_PASS).size(), retains ? 1U : 0U);
}

/// Whether the task has no newer copy of the camera.
bool RunChecker::is_newest(const CopiedFile& copy) const {
    const std::string camera = copy.path.substr(0, copy.path.find('/') + 1);
    return std::ranges::none_of(scene_.ledger.copies, [&](const auto& one) {
        const auto& [path, other] = one;
        return path.starts_with(camera) && other.day > copy.day && !other.removed &&
               !scene_.ledger.foreign.contains(path);
    });
}

std::string RunChecker::on_share(const std::string& path) const {
    const std::string& folder = scene_.goal.destination.folder;
    return folder.empty() ? path : folder + "/" + path;
}

std::string RunChecker::below_folder(const std::string& path) const {
    const std::string& folder = scene_.goal.destination.folder;
    return folder.empty() ? path : path.substr(folder.size() + 1);
}
