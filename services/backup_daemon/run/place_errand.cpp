// Where a run's copies go: what the markers on the share say, and a marker of this recorder's.
#include "services/backup_daemon/run/place_errand.h"

#include <algorithm>
#include <set>
#include <utility>

#include "services/backup_daemon/copy/share_path.h"
#include "services/backup_daemon/run/run_names.h"

namespace services {
namespace {

// Each new look follows somebody else's claim, and nobody claims twice.
constexpr int MOST_LOOKS = 5;

bool is_too_long(const std::optional<std::string>& text) {
    return text && text->size() > LONGEST_TEXT;
}

}  // namespace

PlaceErrand::PlaceErrand(FindPlace order)
    : order_(std::move(order)), own_(own_folder(order_.recorder)) {}

std::string PlaceErrand::folder(const std::string& below) const {
    return join_path(order_.folder, below);
}

/// Where a marker is made: another task of this recorder's may be at the same.
std::string PlaceErrand::temporary(const std::string& below) const {
    return join_path(folder(below), MARKER_FOLDER) + "." + short_identity(order_.recorder) + "-" +
           order_.task_id;
}

/// Whether it is the place that is known: what is recorded of the task's folder must not be taken
/// for what lies in the one below, nor the other way round.
bool PlaceErrand::is_known(const std::string& below) const {
    return order_.known.is_known && order_.known.own == !below.empty();
}

/// The identifier of a place whose marker does not tell it.
std::string PlaceErrand::id(const std::string& below) const {
    return is_known(below) ? order_.known.id : order_.known.fresh;
}

std::string PlaceErrand::text() const {
    return marker_text({order_.recorder, place_.id});
}

ErrandStep PlaceErrand::begin() {
    return look();
}

ErrandStep PlaceErrand::look() {
    asked_ = Asked::markers;
    ++looks_;
    return {.ask = ReadTexts{{marker_path(folder(own_)), marker_path(folder(""))}}};
}

std::optional<ErrandStep> PlaceErrand::take(const WorkerReport& said) {
    if (const auto* texts = std::get_if<Contents>(&said)) return hear_texts(*texts);
    if (asked_ == Asked::tidying) return hear_tidying(said);
    const bool asked_for_marker = asked_ == Asked::claim || asked_ == Asked::mending;
    if (!asked_for_marker || !std::holds_alternative<Done>(said)) return {};
    return is_marked();
}

std::optional<ErrandStep> PlaceErrand::hear_tidying(const WorkerReport& said) const {
    if (std::holds_alternative<At>(said)) return ErrandStep{};  // a sign of life
    const auto* removed = std::get_if<Removed>(&said);
    if (!removed || removed->files.size() != folders_to_tidy().size()) return {};
    return is_marked();
}

std::optional<ErrandStep> PlaceErrand::hear_texts(const Contents& said) {
    if (std::ranges::any_of(said.texts, is_too_long)) return {};
    if (asked_ == Asked::markers && said.texts.size() == 2)
        return decide(said.texts[0], said.texts[1]);
    if (asked_ != Asked::cameras || said.texts.size() != 1) return {};
    place_.cameras = read_cameras(said.texts[0].value_or(""));
    return tidy_up();
}

/// A folder of its own, once it is marked, is where this recorder's copies are. A marker that
/// cannot be read is another's, unless this recorder has had one there: then a server has lost what
/// it had taken. It is no different when a name is taken that nothing can be read of.
ErrandStep PlaceErrand::decide(const Text& own, const Text& shared) {
    const auto own_marker = read_marker(own.value_or(""));
    const auto shared_marker = read_marker(shared.value_or(""));
    if (own_marker && own_marker->recorder == order_.recorder)
        return settle_at(own_, own_marker->destination);
    if (own_marker)
        return Errand::fail({FailureKind::denied, folder(own_) + ": another recorder's folder"});
    if (own || in_vain_ == own_) return mend(own_);
    if (shared_marker && shared_marker->recorder == order_.recorder)
        return settle_at("", shared_marker->destination);
    if (!shared && !in_vain_) return claim("");
    if (!shared_marker && order_.known.marked && is_known("")) return mend("");
    return claim(own_);
}

ErrandStep PlaceErrand::settle_at(const std::string& below, const std::string& id) {
    place_ = {.below = below, .id = id, .marked = true};
    asked_ = Asked::cameras;
    return {.ask = ReadTexts{{cameras_path(folder(below))}}};
}

ErrandStep PlaceErrand::claim(const std::string& below) {
    if (order_.only_look) return go_unmarked(below);
    place_ = {.below = below, .id = id(below), .marked = true, .is_new = true};
    asked_ = Asked::claim;
    return {.ask = FolderClaim{.folder = join_path(folder(below), MARKER_FOLDER),
                               .temporary = temporary(below),
                               .file = MARKER_FILE,
                               .text = text()}};
}

ErrandStep PlaceErrand::mend(const std::string& below) {
    if (order_.only_look) return go_unmarked(below);
    place_ = {.below = below, .id = id(below), .marked = true};
    asked_ = Asked::mending;
    const std::string path = marker_path(folder(below));
    const ShareNames names("", order_.recorder, order_.task_id);
    return {.ask =
                WriteText{.path = path, .temporary = names.temporary_path(path), .text = text()}};
}

/// A run of this task's may have ended in the middle of a claim, and another one been first.
ErrandStep PlaceErrand::tidy_up() {
    if (order_.only_look) return is_marked();
    asked_ = Asked::tidying;
    RemoveFiles order;
    for (const std::string& below : folders_to_tidy()) {
        order.files.push_back({.path = join_path(temporary(below), MARKER_FILE)});
        order.folders.push_back(temporary(below));
    }
    return {.ask = order};
}

std::set<std::string> PlaceErrand::folders_to_tidy() const {
    return {"", place_.below};
}

ErrandStep PlaceErrand::is_marked() const {
    return {.tell = {place_}, .over = true};
}

ErrandStep PlaceErrand::fail(Failed failed) {
    const bool denied = failed.kind == FailureKind::denied;
    switch (asked_) {
        case Asked::markers:
            if (denied) failed.text += ": nobody can tell whose folder it is";
            break;
        case Asked::claim:
            return fail_to_claim(std::move(failed));
        case Asked::mending:
            if (failed.kind == FailureKind::full && is_known(place_.below))
                return go_unmarked(place_.below);
            break;
        case Asked::cameras:
            if (denied) return tidy_up();
            break;
        case Asked::tidying:
            if (!ends_connection(failed.kind)) return is_marked();
            break;
    }
    return Errand::fail(std::move(failed));
}

ErrandStep PlaceErrand::fail_to_claim(Failed failed) {
    if (failed.kind == FailureKind::occupied && looks_ < MOST_LOOKS) {
        in_vain_ = place_.below;
        return look();
    }
    const bool may_not = failed.kind == FailureKind::full || failed.kind == FailureKind::denied;
    if (may_not && place_.below.empty() && is_known("")) return go_unmarked("");
    // Somebody who just looks for viruses in the new folder keeps some servers from renaming it.
    if (failed.kind == FailureKind::denied) failed.kind = FailureKind::other;
    return Errand::fail(std::move(failed));
}

/// A place that is known needs no marker in this very run: a full share gets one when room has been
/// made, and of one that may not be written to the run tells better itself. Who only looks makes
/// none.
ErrandStep PlaceErrand::go_unmarked(const std::string& below) {
    place_ = {.below = below, .id = id(below)};
    return {.tell = {place_}, .over = true};
}

}  // namespace services
