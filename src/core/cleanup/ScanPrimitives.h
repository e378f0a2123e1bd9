#pragma once

#include "core/system/Locations.h"
#include "core/types/CleanItem.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

// What the clean-up scanners share: measuring, display texts, order. Listing is disk's.
namespace ScanPrimitives {

// Allocated size of an entry measured as itself (a link is never followed); nullopt when
// it cannot be read or is not larger than 0.
std::optional<qint64> entrySize(const QString &path);

// An item titled with the entry's name and subtitled with its folder, the home folder
// shown as "~"; nullopt when the entry yields no size.
std::optional<CleanItem> measuredItem(const QString &path, CleanCategory category,
                                      CleanMethod method, const Locations &where);

// Largest first; equal sizes keep the order in which they were found.
void sortBySize(QList<CleanItem> &items);

// A string value of the bundle's Contents/Info.plist; nullopt when the file cannot be read
// or the value is missing or not a string.
std::optional<QString> infoString(const QString &bundlePath, const char *key);

} // namespace ScanPrimitives
