// The file in which looks at channels' folders are kept (docs/formats.md).
#pragma once

#include <map>
#include <string>

#include "platform/standalone/store/channel_look.h"

namespace standalone {

struct KeptLook {
    Moment looked_at;
    ChannelLook look;
};

/// By the channels' folders.
using KeptLooks = std::map<std::string, KeptLook>;

/// None when there is no such file, when it is damaged or somebody else is writing it, and when it
/// is of a process with other rights to read.
KeptLooks read_looks(const std::string& path);

/// Writes the whole file. Where that fails, now or by a power cut, what is left of it is damaged.
void write_looks(const std::string& path, const KeptLooks& looks);

}  // namespace standalone
