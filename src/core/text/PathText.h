#pragma once

#include <QString>
#include <optional>

// Path arithmetic on text only: nothing here touches the file system or resolves links.
namespace PathText {

// Absolute, no ".", no empty segments, no trailing "/", ".." resolved against the
// preceding component and dropped at the root ("/../x" is "/x"). A relative path is
// taken against the current folder first. (QDir::cleanPath keeps a leading "..".)
QString standardized(const QString &path);

// `path` without trailing "/" ("/" stays "/").
QStringView withoutTrailingSlashes(QStringView path);

// The last component once trailing "/" are removed ("" for "/").
QString lastComponent(const QString &path);

// The text after the last dot of the last component, or "" when it has none:
// "x.vmdk/" gives "vmdk", "a.tar.gz" gives "gz".
QString extension(const QString &path);

// The path without its last component and without trailing "/" ("/Applications" for
// "/Applications/X.app/"); "/" for a top-level entry.
QString parentFolder(const QString &path);

// One line of text whatever a name holds: control characters (U+0000 to U+001F, U+007F)
// and the backslash become "\n", "\t", "\\" or "\xHH", so a file name can neither start
// a new line nor add a field to a tab-separated one.
QString escaped(const QString &text);

// The text escaped() was given, or nullopt when `text` holds an escape it never writes
// (a lone backslash, "\x" without two upper-case hex digits, an unknown letter).
std::optional<QString> unescaped(QStringView text);

} // namespace PathText
