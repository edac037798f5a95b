// What to tell of settings: what values they take, and which ones a misspelt name may have meant.
#pragma once

#include <string>

#include "platform/known_settings.h"

namespace recorderctl {

/// "switch", "number" or "text".
std::string kind_of(const KnownSetting& setting);

/// What counts when it is not set: "365", "starttls", "" where nothing does.
std::string default_of(const KnownSetting& setting);

/// Whether a text is one of them, as the setting's reader takes it.
bool takes(const KnownSetting& setting, const std::string& text);

/// The known settings whose names are most like these, "log keep_days, ...".
std::string nearest_settings(const std::string& section, const std::string& key);

}  // namespace recorderctl
