#include "core/disk/Listing.h"

#include "core/text/PathText.h"
#include "core/util/Utf8.h"
#include "platform/DirReader.h"
#include "platform/NoLinkPath.h"

#include <QFile>
#include <cstring>
#include <dirent.h>
#include <unistd.h>

namespace Listing {
namespace {

// The anchor for `standard` and the part below it.
QByteArray anchorFor(const QString &standard, const Locations &where, QByteArray *relative)
{
    const QString anchor = where.contains(standard) ? where.home() : QStringLiteral("/");
    const QByteArray native = QFile::encodeName(anchor);
    if (!Platform::NoLinkPath::relativeTo(native, QFile::encodeName(standard), relative))
        return {};
    return native;
}

} // namespace

int openFolder(const QString &folder, const Locations &where)
{
    if (folder.isEmpty())
        return -1;
    QByteArray relative;
    const QByteArray anchor = anchorFor(PathText::standardized(folder), where, &relative);
    return anchor.isEmpty() ? -1 : Platform::NoLinkPath::openFolder(anchor, relative);
}

bool reachedThroughLink(const QString &path, const Locations &where)
{
    QByteArray relative;
    const QByteArray anchor =
        anchorFor(PathText::parentFolder(PathText::standardized(path)), where, &relative);
    return !anchor.isEmpty() && Platform::NoLinkPath::passesThroughLink(anchor, relative);
}

QStringList entryNames(const QString &folder, const Locations &where, Hidden hidden)
{
    QStringList names;
    const int fd = openFolder(folder, where);
    DIR *dir = fd < 0 ? nullptr : ::fdopendir(fd);
    if (!dir) {
        if (fd >= 0)
            ::close(fd);
        return names;
    }
    while (const dirent *d = ::readdir(dir)) {
        const char *name = d->d_name;
        if (Platform::isDots(name) || (name[0] == '.' && hidden == Hidden::drop))
            continue;
        const size_t length = std::strlen(name);
        if (Utf8::isValid(name, length))
            names.append(QString::fromUtf8(name, qsizetype(length)));
    }
    ::closedir(dir);
    return names;
}

QStringList children(const QString &folder, const Locations &where)
{
    QStringList paths = entryNames(folder, where);
    for (QString &name : paths)
        name.prepend(folder + u'/');
    return paths;
}

} // namespace Listing
