#pragma once

#include <QString>
#include <QVariantMap>
#include <optional>

// Property lists in XML or binary form, through libplist.
namespace PlistReader {

// Files larger than this are not read: an Info.plist is a few kilobytes.
inline constexpr qint64 kMaxBytes = 8 * 1024 * 1024;

// The top-level dictionary of the file; nullopt when the file cannot be read, is too
// large, is not a property list or its top level is not a dictionary. Strings, booleans,
// integers, reals, arrays and dictionaries are converted; other node kinds are dropped.
std::optional<QVariantMap> readDictionary(const QString &path);

// The same for bytes already in memory.
std::optional<QVariantMap> parseDictionary(const QByteArray &data);

} // namespace PlistReader
