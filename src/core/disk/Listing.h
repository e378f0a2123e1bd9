#pragma once

#include "core/system/Locations.h"

#include <QString>
#include <QStringList>

// Listing one folder, as every scan does. A folder is reached without passing through a
// symbolic link: below the home folder when it lies inside it, else below the root, so a
// scan root that is a link, or lies behind one, lists nothing.
namespace Listing {

enum class Hidden { drop, keep };

// `folder` opened for reading; -1 when it cannot be opened so.
int openFolder(const QString &folder, const Locations &where);

// True when a folder on the way to `path` (not `path` itself) is a symbolic link.
bool reachedThroughLink(const QString &path, const Locations &where);

// Names of the direct entries of `folder`, in the file system's own order; empty when it
// cannot be listed. Names that are not valid UTF-8 are always dropped: they cannot be
// shown, and a lossy decoding could lead a later move to a different file.
QStringList entryNames(const QString &folder, const Locations &where, Hidden hidden = Hidden::drop);

// Full paths of the visible direct entries of `folder`, in listing order.
QStringList children(const QString &folder, const Locations &where);

} // namespace Listing
