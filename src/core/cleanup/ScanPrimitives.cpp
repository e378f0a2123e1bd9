#include "core/cleanup/ScanPrimitives.h"

#include "core/disk/DiskScanner.h"
#include "core/plist/PlistReader.h"
#include "core/process/Shell.h"
#include "core/text/PathText.h"
#include "core/util/Utf8.h"
#include "platform/NoLinkPath.h"

#include <QDir>
#include <QFile>
#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace ScanPrimitives {

int openFolder(const QString &folder)
{
    if (folder.isEmpty())
        return -1;
    const QString standard = PathText::standardized(folder);
    const QString home = PathText::standardized(QDir::homePath());
    const QString anchor = standard == home || standard.startsWith(home + u'/') ? home : u"/"_s;
    QByteArray relative;
    if (!Platform::NoLinkPath::relativeTo(QFile::encodeName(anchor), QFile::encodeName(standard),
                                          &relative))
        return -1;
    return Platform::NoLinkPath::openFolder(QFile::encodeName(anchor), relative);
}

bool reachedThroughLink(const QString &path)
{
    const QString standard = PathText::standardized(path);
    const QString home = PathText::standardized(QDir::homePath());
    const QString anchor = standard.startsWith(home + u'/') ? home : u"/"_s;
    QByteArray relative;
    return Platform::NoLinkPath::relativeTo(QFile::encodeName(anchor),
                                            QFile::encodeName(PathText::parentFolder(standard)),
                                            &relative) &&
           Platform::NoLinkPath::passesThroughLink(QFile::encodeName(anchor), relative);
}

QStringList entryNames(const QString &folder, Hidden hidden)
{
    QStringList names;
    const int fd = openFolder(folder);
    DIR *dir = fd < 0 ? nullptr : fdopendir(fd);
    if (!dir) {
        if (fd >= 0)
            close(fd);
        return names;
    }
    while (const dirent *d = readdir(dir)) {
        const char *name = d->d_name;
        if (name[0] == '.') {
            if (hidden == Hidden::drop || name[1] == 0 || (name[1] == '.' && name[2] == 0))
                continue;
        }
        const size_t length = std::strlen(name);
        if (!Utf8::isValid(name, length))
            continue;
        names.append(QString::fromUtf8(name, qsizetype(length)));
    }
    closedir(dir);
    return names;
}

QStringList children(const QString &folder)
{
    QStringList paths = entryNames(folder);
    for (QString &name : paths)
        name.prepend(folder + u'/');
    return paths;
}

std::optional<qint64> entrySize(const QString &path)
{
    const qint64 bytes = DiskScanner::itemSize(path);
    if (bytes <= 0)
        return std::nullopt;
    return bytes;
}

QString tildePath(const QString &path)
{
    const QString home = QDir::homePath();
    if (home.isEmpty() || home == u"/"_s)
        return path;
    if (path == home)
        return u"~"_s;
    if (path.startsWith(home) && path.at(home.size()) == u'/')
        return u'~' + path.mid(home.size());
    return path;
}

QString inHome(const QString &relative)
{
    QStringView rest(relative);
    if (rest.startsWith(u'~'))
        rest = rest.mid(1);
    if (rest.startsWith(u'/'))
        rest = rest.mid(1);
    return QDir::homePath() + u'/' + rest.toString();
}

std::optional<CleanItem> measuredItem(const QString &path, CleanCategory category,
                                      CleanMethod method)
{
    const std::optional<qint64> bytes = entrySize(path);
    if (!bytes)
        return std::nullopt;
    return CleanItem{path,
                     PathText::lastComponent(path),
                     tildePath(PathText::parentFolder(path)),
                     *bytes,
                     category,
                     method};
}

void sortBySize(QList<CleanItem> &items)
{
    std::stable_sort(items.begin(), items.end(),
                     [](const CleanItem &a, const CleanItem &b) { return a.bytes > b.bytes; });
}

std::optional<QString> infoString(const QString &bundlePath, const char *key)
{
    const QString name = QString::fromLatin1(key);
    const std::optional<QVariantMap> info =
        PlistReader::readDictionary(bundlePath + u"/Contents/Info.plist"_s, {name});
    if (!info)
        return std::nullopt;
    const QVariant value = info->value(name);
    if (value.typeId() != QMetaType::QString)
        return std::nullopt;
    return value.toString();
}

std::optional<QString> runTool(const QString &tool, const QStringList &arguments,
                               double timeoutSeconds)
{
    const QByteArray native = QFile::encodeName(tool);
    struct stat st;
    if (native.isEmpty() || stat(native.constData(), &st) != 0 || !S_ISREG(st.st_mode) ||
        access(native.constData(), X_OK) != 0)
        return std::nullopt;
    return Shell::run(tool, arguments, {}, timeoutSeconds);
}

} // namespace ScanPrimitives
