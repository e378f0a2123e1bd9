#include "platform/LaunchAtLogin.h"

// (being written)
namespace Platform::LaunchAtLogin {

bool enabled()
{
    return false;
}

std::optional<QString> set(bool)
{
    return QStringLiteral("not yet");
}

} // namespace Platform::LaunchAtLogin
