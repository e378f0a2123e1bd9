#include "platform/ByteCountFormat.h"

namespace Platform {

// Linux has no system formatter with this style; core reproduces it.
std::optional<QString> systemByteCountText(qint64)
{
    return std::nullopt;
}

} // namespace Platform
