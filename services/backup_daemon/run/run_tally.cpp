// What a run has planned, done and failed, counted as reports come in: percent, speed, time left.
#include "services/backup_daemon/run/run_tally.h"

#include <algorithm>
#include <utility>

namespace services {
namespace {

// As long as more may come to light, a run is not wholly done.
constexpr double NEARLY_ALL = 99.9;

constexpr long long MILLISECONDS = 1000;  // of a second

}  // namespace

void RunTally::plan(long long files, long long bytes) {
    files_planned_ += files;
    bytes_planned_ += bytes;
    note_percent();
}

void RunTally::measured() {
    measuring_ = false;
    note_percent();
}

void RunTally::all_planned() {
    all_planned_ = true;
    note_percent();
}

void RunTally::reached(FileCount& file, long long offset) {
    const long long change = offset - file.done;
    bytes_done_ += change;
    file.done = offset;
    file.was_sent = true;
    note_percent();
    const long long furthest = std::exchange(file.furthest, std::max(file.furthest, offset));
    const bool was_begun = std::exchange(file.begun, true);
    if (!was_begun || change <= 0) return;
    bytes_moved_ += change;
    if (offset > furthest) progressed_ = true;
}

void RunTally::finished(FileCount& file, long long size) {
    add(file.was_sent ? sent_ : stood_, size);
    bytes_planned_ += size - file.planned;
    file.planned = size;
    // Of a file that was never begun nothing was sent: it stood there.
    reached(file, size);
    ++files_done_;
    progressed_ = true;
}

void RunTally::gave_up(const FileCount& file, const std::string& why, const std::string& path) {
    add(failed_, file.planned);
    if (failures_.size() < RunAccount::MOST_FAILURES) failures_.push_back({path, why});
    bytes_planned_ -= file.planned;
    bytes_done_ -= file.done;
    ++files_failed_;
    if (first_failure_.empty()) first_failure_ = why;
    note_percent();
}

void RunTally::add(standalone::FileAmount& amount, long long bytes) {
    ++amount.files;
    amount.bytes += bytes;
}

void RunTally::removed(const standalone::FileAmount& copies) {
    removed_.files += copies.files;
    removed_.bytes += copies.bytes;
}

/// What has to be sent again, or comes to light late, does not take back what people were told.
void RunTally::note_percent() {
    if (measuring_) return;
    const double now = percent_of(done(), planned());
    percent_ = std::max(percent_, all_planned_ ? now : std::min(now, NEARLY_ALL));
}

long long RunTally::planned() const {
    const long long known = earlier_.bytes + bytes_planned_;
    return measuring_ ? std::max(known, earlier_.bytes_planned) : known;
}

bool RunTally::take_progress() {
    return std::exchange(progressed_, false);
}

void RunTally::note_speed() {
    for (RateMeter* meter : {&rate_, &last_minute_}) meter->note(clock_.steady(), bytes_moved_);
}

/// On a slow line a single write takes longer than the speed looks back.
std::optional<long long> RunTally::time_left() const {
    const double rate = rate_.rate();
    return seconds_left(planned() - done(), rate > 0 ? rate : last_minute_.rate());
}

std::string RunTally::failure() const {
    if (files_failed_ == 0) return "";
    return std::to_string(files_failed_) + " of " + std::to_string(files_planned_) +
           " files could not be copied; the first: " + first_failure_;
}

RunFigures RunTally::figures(const std::string& message) const {
    RunFigures figures;
    figures.bytes_planned = planned();
    figures.bytes_done = done();
    figures.percent = percent_;
    figures.rate = rate_.rate();
    figures.files_done = earlier_.files + files_done_;
    figures.files_left = files_left();
    figures.files_failed = files_failed_;
    figures.seconds_left = time_left();
    figures.message = message;
    figures.time_ms = clock_.wall().count();
    return figures;
}

/// What stood there was planned because nobody knew that it did.
RunAccount RunTally::account(const std::string& message) const {
    RunAccount account;
    account.counts.planned = {files_planned_ - stood_.files,
                              bytes_planned_ + failed_.bytes - stood_.bytes};
    account.counts.sent = {sent_.files, bytes_moved_};
    account.counts.kept = {kept_.files + stood_.files, kept_.bytes + stood_.bytes};
    account.counts.failed = failed_;
    account.counts.removed = removed_;
    const auto elapsed = (clock_.steady() - begun_).count();
    if (elapsed > 0)
        account.counts.rate = static_cast<double>(bytes_moved_) * MILLISECONDS / elapsed;
    account.failures = failures_;
    account.reason = message;
    account.seen = clock_.wall().count() / MILLISECONDS;
    return account;
}

}  // namespace services
