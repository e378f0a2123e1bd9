#pragma once

#include <QString>
#include <optional>

namespace Platform {

// The system's own file-style byte-count text limited to KB..TB, or nullopt where the
// system has no such formatter (the caller then renders the same style itself).
std::optional<QString> systemByteCountText(qint64 bytes);

} // namespace Platform
