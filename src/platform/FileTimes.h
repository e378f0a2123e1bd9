#pragma once

#include <QDateTime>
#include <QString>
#include <optional>

namespace Platform {

// The last-access time of the file at `path` (links followed), to the millisecond; read
// from the metadata alone, since opening the file would count as an access. Darwin and
// Linux name the field differently (st_atimespec, st_atim), so every reader comes here.
std::optional<QDateTime> accessTime(const QString &path);

} // namespace Platform
