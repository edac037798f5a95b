// What is remembered of the places that copies go to, in the daemon's own database.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/standalone/store/database.h"
#include "services/backup_daemon/memory/destination_memory.h"

namespace services {

/// Destinations, their addresses and their cameras' folders as rows. Any call may throw
/// standalone::DatabaseError.
class DestinationStore : public DestinationMemory {
public:
    /// @param database with deferred durability: the marker on the share has what is lost
    /// @param address  server, port, share and folder in one text
    DestinationStore(standalone::Database& database, std::string address)
        : database_(database), address_(std::move(address)) {}

    KnownPlace known() override;
    void settle(const FoundDestination& found) override;
    std::map<std::string, std::string> camera_folders() override;
    std::set<std::string> folders_of_copies() override;
    void add_camera_folder(const std::string& guid, const std::string& folder,
                           const std::string& folded) override;
    void note_room(const std::string& share, const std::optional<KnownRoom>& room) override;

    /// Addresses whose copies are of a version that kept no cameras' folders.
    static std::vector<std::string> addresses_without_folders(standalone::Database& database);

    /// Whatever folders there are to be known, are.
    void folders_are_known();

protected:
    /// All that follows is about the destination `id`.
    void turn_to(const std::string& id) { id_ = id; }

private:
    void note(const FoundDestination& found);
    void note_former(const std::string& former);
    void take_in_formers();
    void take_in(const std::string& other);

    standalone::Database& database_;
    std::string address_;
    std::string id_;
};

/// The same without writing: what is to be remembered is, as long as the object lives. What a
/// version without markers has recorded under another address is not taken in.
class UnwrittenDestinations : public DestinationStore {
public:
    using DestinationStore::DestinationStore;

    void settle(const FoundDestination& found) override { turn_to(found.id); }

    std::map<std::string, std::string> camera_folders() override {
        auto folders = DestinationStore::camera_folders();
        folders.insert(added_.begin(), added_.end());
        return folders;
    }

    void add_camera_folder(const std::string& guid, const std::string& folder,
                           const std::string& /*folded*/) override {
        added_.emplace(guid, folder);
    }

    void note_room(const std::string&, const std::optional<KnownRoom>&) override {}

private:
    std::map<std::string, std::string> added_;
};

}  // namespace services
