// Who this recorder is among all that copy to the same share.
#include "platform/standalone/store/recorder_identity.h"

#include <stdexcept>

namespace standalone {

std::string recorder_identity(Database& registry) {
    Statement row = registry.prepare("SELECT identity FROM recorder");
    if (!row.step())
        throw std::runtime_error("the registry has lost the recorder's identity; restore it");
    return row.text(0);
}

}  // namespace standalone
