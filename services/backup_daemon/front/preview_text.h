// A preview of a run as one line of JSON.
#pragma once

#include <string>

#include "services/backup_daemon/run/run_preview.h"

namespace services {

/// One JSON object, as docs/formats.md has it, without a line end.
std::string preview_text(const RunPreview& preview);

}  // namespace services
