#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <optional>

// Property lists in XML or binary form, through libplist.
//
// Only the top-level keys a caller names are read, looked up by name: libplist 2.2 aborts
// the process when it hands out a key or string holding a NUL character (a hostile
// Info.plist can do that), and a lookup by name plus length-aware string reads never
// reaches that path.
namespace PlistReader {

// Files larger than this are not read: an Info.plist is a few kilobytes.
inline constexpr qint64 kMaxBytes = 8 * 1024 * 1024;

// The named entries of the file's top-level dictionary (absent keys are left out);
// nullopt when the file cannot be read, is too large, is not a property list or its top
// level is not a dictionary. Strings (NUL characters kept), booleans, integers, reals and
// arrays of those are converted; other values are left out.
std::optional<QVariantMap> readDictionary(const QString &path, const QStringList &keys);

// The same for bytes already in memory.
std::optional<QVariantMap> parseDictionary(const QByteArray &data, const QStringList &keys);

} // namespace PlistReader
