// A memory of copies that tests can look into and that fails on demand.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "platform/standalone/store/database.h"
#include "services/backup_daemon/memory/copy_memory.h"
#include "services/backup_daemon/memory/destination_memory.h"

/// What is remembered; outlives the memories over it, as a database does.
struct CopyLedger {
    std::map<std::string, services::CopiedFile> copies;       ///< by path
    std::map<std::string, services::Checkpoint> checkpoints;  ///< by path, the task's own
    std::vector<services::Checkpoint> abandoned;              ///< of tasks that are deleted
    std::set<std::string> foreign;       ///< paths of copies that another task has made
    std::set<std::string> unsampled;     ///< paths of copies that a sample is for
    std::set<std::string> spoilt;        ///< paths of those that are not as they were made
    std::set<std::string> half_removed;  ///< paths, while they are being removed to make room
    /// What is known of the date: by default it is believed for years.
    std::optional<services::TaskDate> date = services::TaskDate{.trusted = "2030-01-01"};
    std::string destination;                     ///< the last that was settled; "" before
    bool marked = false;                         ///< as it was settled
    bool own = false;                            ///< the same
    std::map<std::string, std::string> folders;  ///< by the camera's guid

    std::map<std::string, std::string> rooms;  ///< "5 of 9", or "not told", by the share

    int calls = 0;  ///< so far, refused ones too
    /// Whether a call, numbered from 1 on, fails; it has no effect then.
    std::function<bool(int call)> refuses = [](int) { return false; };
    int code = 5;  ///< with which it fails; SQLITE_BUSY

    // What was answered and asked, for those who watch a run.
    std::vector<std::string> recorded;  ///< paths, one for each record
    std::vector<std::string> gone;      ///< paths that were said to be gone from the share
    std::map<std::string, std::set<std::string>> older_than;  ///< paths told, by the day asked for
    std::set<std::string> of_oldest_day;  ///< of them those of the day that was the oldest then
    std::set<std::string> begun;          ///< temporary files told by checkpoints()
    long long counted = 0;                ///< copies, by amount_older_than()

    /// Every call of a memory over this goes through here.
    void call() {
        if (refuses(++calls)) throw standalone::DatabaseError("the memory does not answer", code);
    }

    /// Puts a copy in, as an earlier run would have.
    void add(const std::string& path, const std::string& day, long long size = 100) {
        copies[path] = {
            .path = path, .day = day, .size = size, .modified_ns = size * 10, .sha256 = ""};
    }
};

class LedgerPlaces : public services::DestinationMemory {
public:
    explicit LedgerPlaces(CopyLedger& ledger) : ledger_(ledger) {}

    services::KnownPlace known() override {
        ledger_.call();
        const bool is_known = !ledger_.destination.empty();
        return {.id = is_known ? ledger_.destination : "new",
                .is_known = is_known,
                .marked = ledger_.marked,
                .own = ledger_.own,
                .fresh = "new"};
    }

    void settle(const services::FoundDestination& found) override {
        ledger_.call();
        ledger_.destination = found.id;
        ledger_.marked = found.marked;
        ledger_.own = found.own;
    }

    std::map<std::string, std::string> camera_folders() override {
        ledger_.call();
        return ledger_.folders;
    }

    std::set<std::string> folders_of_copies() override {
        ledger_.call();
        std::set<std::string> folders;
        for (const auto& [path, copy] : ledger_.copies)
            folders.insert(path.substr(0, path.find('/')));
        return folders;
    }

    void add_camera_folder(const std::string& guid, const std::string& folder,
                           const std::string&) override {
        ledger_.call();
        ledger_.folders[guid] = folder;
    }

    void note_room(const std::string& share,
                   const std::optional<services::KnownRoom>& room) override {
        ledger_.call();
        ledger_.rooms[share] =
            room ? std::to_string(room->free) + " of " + std::to_string(room->total) : "not told";
    }

private:
    CopyLedger& ledger_;
};

class LedgerMemory : public services::CopyMemory {
public:
    explicit LedgerMemory(CopyLedger& ledger) : ledger_(ledger) {}

    void move_to(const std::string& destination) override {
        ledger_.call();
        EXPECT_EQ(destination, ledger_.destination) << "not where the run has settled";
    }

    std::map<std::string, services::CopiedFile> copied_in(const std::string& folder) override {
        call();
        std::map<std::string, services::CopiedFile> found;
        for (const auto& [path, copy] : ledger_.copies)
            if (path.starts_with(folder)) found.emplace(path, copy);
        return found;
    }

    std::optional<services::Checkpoint> checkpoint(const std::string& path) override {
        call();
        const auto found = ledger_.checkpoints.find(path);
        if (found == ledger_.checkpoints.end()) return {};
        return found->second;
    }

    std::vector<services::Checkpoint> checkpoints() override {
        call();
        std::vector<services::Checkpoint> all;
        for (const auto& [path, made] : ledger_.checkpoints) {
            all.push_back(made);
            ledger_.begun.insert(made.temporary);
        }
        return all;
    }

    std::vector<services::Checkpoint> abandoned() override {
        call();
        return ledger_.abandoned;
    }

    void drop_abandoned(const std::string& temporary) override {
        call();
        std::erase_if(ledger_.abandoned, [&](const services::Checkpoint& left) {
            return left.temporary == temporary;
        });
    }

    void save(const services::Checkpoint& made) override {
        call();
        ledger_.checkpoints[made.path] = made;
    }

    void drop_checkpoint(const std::string& path) override {
        call();
        ledger_.checkpoints.erase(path);
    }

    void record(const services::CopiedFile& file) override {
        call();
        ledger_.copies[file.path] = file;
        ledger_.unsampled.insert(file.path);
        ledger_.spoilt.erase(file.path);
        ledger_.checkpoints.erase(file.path);
        ledger_.recorded.push_back(file.path);
    }

    std::string oldest_day() override {
        call();
        return oldest_own_day();
    }

    std::set<std::string> newest_days(const std::string& before) override {
        call();
        std::map<std::string, std::string> newest;
        for (const auto& [path, copy] : ledger_.copies)
            if (is_own(copy)) newest[camera(path)] = std::max(newest[camera(path)], copy.day);
        std::set<std::string> days;
        for (const auto& [of, day] : newest)
            if (day < before) days.insert(of + day);
        return days;
    }

    std::vector<services::CopiedFile> older_than(const std::string& day, int limit,
                                                 const std::set<std::string>& kept) override {
        call();
        std::vector<services::CopiedFile> files;
        const auto by_day = older(day, kept);
        for (const auto& [of_day, copy] : by_day) {
            if (files.size() == static_cast<std::size_t>(limit)) break;
            files.push_back(copy);
            ledger_.older_than[day].insert(copy.path);
            if (of_day == oldest_own_day()) ledger_.of_oldest_day.insert(copy.path);
        }
        return files;
    }

    services::FileAmount amount_older_than(const std::string& day,
                                           const std::set<std::string>& kept,
                                           long long enough) override {
        call();
        services::FileAmount amount;
        for (const auto& [of_day, copy] : older(day, kept)) {
            if (amount.bytes >= enough) break;
            ++amount.files;
            amount.bytes += copy.size;
        }
        ledger_.counted += amount.files;
        return amount;
    }

    void begin_removal(const std::vector<services::CopiedFile>& copies) override {
        call();
        for (const services::CopiedFile& copy : copies) {
            ledger_.copies.at(copy.path).removed = true;
            ledger_.half_removed.insert(copy.path);
        }
    }

    std::vector<services::CopiedFile> half_removed(int limit) override {
        call();
        std::vector<services::CopiedFile> files;
        for (const std::string& path : ledger_.half_removed) {
            if (files.size() == static_cast<std::size_t>(limit)) break;
            if (!ledger_.foreign.contains(path)) files.push_back(ledger_.copies.at(path));
        }
        return files;
    }

    std::optional<services::TaskDate> date() override {
        call();
        return ledger_.date;
    }

    void set_date(const services::TaskDate& date) override {
        call();
        ledger_.date = date;
    }

    /// Of each day the first.
    services::Sample sample() override {
        call();
        for (const std::string& path : ledger_.unsampled) {
            const auto copy = ledger_.copies.find(path);
            if (copy != ledger_.copies.end() && is_own(copy->second))
                return {camera(path) + copy->second.day + "/", {copy->second}};
        }
        return {};
    }

    void end_sample(const std::string& folder) override {
        call();
        std::erase_if(ledger_.unsampled,
                      [&](const std::string& path) { return path.starts_with(folder); });
    }

    void doubt(const std::string& path, const std::string& folder) override {
        call();
        ledger_.spoilt.insert(path);
        for (auto& [of, copy] : ledger_.copies)
            if (of.starts_with(folder)) copy.doubted = true;
        std::erase_if(ledger_.unsampled,
                      [&](const std::string& other) { return other.starts_with(folder); });
    }

    std::set<std::string> spoilt() override {
        call();
        return ledger_.spoilt;
    }

    void accept_spoilt() override {
        call();
        ledger_.spoilt.clear();
    }

    void forget(const std::string& path) override {
        call();
        ledger_.copies.erase(path);
        ledger_.gone.push_back(path);
    }

    void mark_removed(const std::string& path) override {
        call();
        if (const auto copy = ledger_.copies.find(path); copy != ledger_.copies.end())
            copy->second.removed = true;
        ledger_.half_removed.erase(path);
        ledger_.gone.push_back(path);
    }

private:
    void call() { ledger_.call(); }

    static std::string camera(const std::string& path) {
        return path.substr(0, path.find('/') + 1);
    }

    std::multimap<std::string, services::CopiedFile> older(
        const std::string& day, const std::set<std::string>& kept) const {
        std::multimap<std::string, services::CopiedFile> by_day;
        for (const auto& [path, copy] : ledger_.copies)
            if (is_own(copy) && copy.day < day && !kept.contains(camera(path) + copy.day))
                by_day.emplace(copy.day, copy);
        return by_day;
    }

    bool is_own(const services::CopiedFile& copy) const {
        return !copy.removed && !ledger_.foreign.contains(copy.path);
    }

    std::string oldest_own_day() const {
        std::string oldest;
        for (const auto& [path, copy] : ledger_.copies)
            if (is_own(copy) && (oldest.empty() || copy.day < oldest)) oldest = copy.day;
        return oldest;
    }

    CopyLedger& ledger_;
};
