// The cameras' folders as versions named them that kept no record of them.
#include "services/backup_daemon/run/older_folders.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

#include "services/backup_daemon/copy/share_path.h"
#include "services/backup_daemon/memory/destination_store.h"
#include "services/backup_daemon/run/selection.h"

namespace services {
namespace {

using standalone::Channel;

/// Those versions knew the letters of ASCII alone.
std::string small_ascii(std::string name) {
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
    return name;
}

/// Channels of one name had their guid behind it.
std::string older_folder(const Channel& channel, const std::vector<Channel>& channels) {
    std::string name = wished_folder(channel);
    const auto has_its_name = [&](const Channel& other) {
        return small_ascii(wished_folder(other)) == small_ascii(name);
    };
    if (std::ranges::count_if(channels, has_its_name) == 1) return name;
    return safe_name(name + " " + channel.guid);
}

/// Cameras by their folder, as a server sees it that does not tell upper case from lower case.
using Older = std::multimap<std::string, const Channel*>;

void take_over(standalone::Database& memory, const std::string& address, const Older& older,
               const std::vector<Channel>& channels) {
    DestinationStore destination(memory, address);
    const KnownPlace place = destination.known();
    destination.settle({place.id, place.marked, place.own});
    const std::set<std::string> used = destination.folders_of_copies();
    standalone::Transaction transaction(memory);
    for (const auto& [name, channel] : older) {
        const std::string folder = older_folder(*channel, channels);
        if (older.count(name) == 1 && used.contains(folder))
            destination.add_camera_folder(channel->guid, folder, name);
    }
    destination.folders_are_known();
    transaction.commit();
}

}  // namespace

void take_over_folders(standalone::Database& memory, const std::vector<Channel>& channels) {
    Older older;
    for (const Channel& channel : channels)
        older.emplace(folded(older_folder(channel, channels)), &channel);
    for (const std::string& address : DestinationStore::addresses_without_folders(memory))
        take_over(memory, address, older, channels);
}

}  // namespace services
