#pragma once

#include "core/cleanup/CleanItem.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

// What the clean-up scanners share: listing, measuring, display texts, order.
namespace ScanPrimitives {

enum class Hidden { drop, keep };

// `folder` opened for reading with no symbolic link on the way: below the home folder when
// it lies inside it, else below the root. A scan root that is a link, or lies behind one,
// would list another folder than the one the rules name. -1 when it cannot be opened so.
int openFolder(const QString &folder);

// True when a folder on the way to `path` (not `path` itself) is a symbolic link.
bool reachedThroughLink(const QString &path);

// Names of the direct entries of `folder`, in the file system's own order; empty when it
// cannot be listed or is reached through a link (see openFolder). Names that are not valid UTF-8
// are always dropped: they cannot be shown, and a lossy decoding could lead a later move to a
// different file.
QStringList entryNames(const QString &folder, Hidden hidden = Hidden::drop);

// Full paths of the visible direct entries of `folder`, in listing order.
QStringList children(const QString &folder);

// Allocated size of an entry measured as itself (a link is never followed); nullopt when
// it cannot be read or is not larger than 0.
std::optional<qint64> entrySize(const QString &path);

// `path` with the home folder's prefix shown as "~".
QString tildePath(const QString &path);

// Home folder + "/" + `relative`; "~/x" and "x" mean the same.
QString inHome(const QString &relative);

// An item titled with the entry's name and subtitled with its folder as tildePath shows
// it; nullopt when the entry yields no size.
std::optional<CleanItem> measuredItem(const QString &path, CleanCategory category,
                                      CleanMethod method);

// Largest first; equal sizes keep the order in which they were found.
void sortBySize(QList<CleanItem> &items);

// A string value of the bundle's Contents/Info.plist; nullopt when the file cannot be read
// or the value is missing or not a string.
std::optional<QString> infoString(const QString &bundlePath, const char *key);

// The output of a system tool, run only when `tool` is an executable file (Spotlight's
// tools exist on macOS alone).
std::optional<QString> runTool(const QString &tool, const QStringList &arguments,
                               double timeoutSeconds);

} // namespace ScanPrimitives
