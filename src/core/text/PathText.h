#pragma once

#include <QString>

// Path arithmetic on text only: nothing here touches the file system or resolves links.
namespace PathText {

// Absolute, no ".", no empty segments, no trailing "/", ".." resolved against the
// preceding component and dropped at the root ("/../x" is "/x"). A relative path is
// taken against the current folder first. (QDir::cleanPath keeps a leading "..".)
QString standardized(const QString &path);

// The last component once trailing "/" are removed ("" for "/").
QString lastComponent(const QString &path);

// The text after the last dot of the last component, or "" when it has none:
// "x.vmdk/" gives "vmdk", "a.tar.gz" gives "gz".
QString extension(const QString &path);

// The path without its last component and without trailing "/" ("/Applications" for
// "/Applications/X.app/"); "/" for a top-level entry.
QString parentFolder(const QString &path);

} // namespace PathText
