#pragma once

#include <QDateTime>
#include <QString>
#include <optional>

namespace Platform {

// When Spotlight last saw the application at `bundlePath` opened (kMDItemLastUsedDate),
// in UTC; nullopt when it does not know or where there is no Spotlight. Asked in-process
// rather than through mdls: a scan asks once per application. Callable from any thread.
std::optional<QDateTime> spotlightLastUsed(const QString &bundlePath);

} // namespace Platform
