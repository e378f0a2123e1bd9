#pragma once

#include <QString>

// The user's append-only record of every move to the Trash.
namespace RemovalLog {

// ~/Library/Logs/Quorvel/removals.log, fixed at first use.
QString path();

// Appends "<UTC time stamp>\t<line>\n" in one write to the file opened for appending; the
// folder and file are created by the first call. Never truncates, never reports failure.
void append(const QString &line);

} // namespace RemovalLog
