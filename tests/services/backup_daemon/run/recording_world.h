// Recordings and a share in memory, and what an honest lane reports of an order on them.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "services/backup_daemon/run/lane_messages.h"

class RecordingWorld {
public:
    /// Puts a recording of `size` bytes into a channel's folder; one of that name is replaced.
    /// @param name "08-00-00.mp4", or "alarm/08-00-00.mp4"
    void record(const std::string& recordings, const std::string& day, const std::string& name,
                long long size, long long modified_ns = 1);
    void erase(const std::string& recordings, const std::string& day, const std::string& name);

    /// Makes a day's folder, which is there from then on, with recordings or without. Days that
    /// nobody has made so are gone with their last recording.
    void make_day(const std::string& recordings, const std::string& day);

    /// Everything that a lane says of an order, the report that ends it last; and does it.
    std::vector<services::Report> carry_out(const services::Order& order);

    /// The files on the share, with their sizes.
    std::map<std::string, long long> share;
    /// Those of them whose content is not as it was copied.
    std::set<std::string> spoilt;
    /// Where a lane finds that copies go.
    services::FoundPlace place{.below = "", .id = "place", .marked = true};
    /// How many bytes the share has room for.
    long long room = 1LL << 50;
    /// Leaves no room on the share.
    void fill();
    /// Whether the server keeps the bytes of what is removed.
    bool keeps_removed = false;
    /// Whether the server tells how much of it is left.
    bool tells_room = true;

private:
    struct Recording {
        long long size = 0;
        long long modified_ns = 0;
    };

    std::vector<services::Report> obey(const services::FindPlace& order);
    std::vector<services::Report> obey(const services::WriteText& order);
    std::vector<services::Report> obey(const services::ListDays& order);
    std::vector<services::Report> obey(const services::ListDay& order);
    std::vector<services::Report> obey(const services::CopyJob& order);
    std::vector<services::Report> obey(const services::RemoveFiles& order);
    std::vector<services::Report> obey(const services::AskRoom& order);
    std::vector<services::Report> obey(const services::ReadCopy& order);
    services::Condition condition_of(const services::ReadBack& copy) const;
    services::Fate remove(const services::DoomedFile& file);

    bool is_there(const std::string& folder) const;
    std::vector<standalone::FolderStamp> empty_beyond(const services::ListDay& order) const;
    long long free_room() const;

    std::map<std::string, Recording> recordings_;  ///< by path
    std::map<std::string, long long> made_;        ///< days, with how often they have changed
    long long kept_ = 0;                           ///< bytes of what was removed
};
