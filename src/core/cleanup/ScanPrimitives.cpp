#include "core/cleanup/ScanPrimitives.h"

#include "core/disk/DiskScanner.h"
#include "core/plist/PlistReader.h"
#include "core/process/Shell.h"
#include "core/text/PathText.h"

#include <QFile>
#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace ScanPrimitives {

std::optional<qint64> entrySize(const QString &path)
{
    const qint64 bytes = DiskScanner::directorySize(path);
    if (bytes <= 0)
        return std::nullopt;
    return bytes;
}

std::optional<CleanItem> measuredItem(const QString &path, CleanCategory category,
                                      CleanMethod method, const Locations &where)
{
    const std::optional<qint64> bytes = entrySize(path);
    if (!bytes)
        return std::nullopt;
    return CleanItem{path,
                     PathText::lastComponent(path),
                     where.tilde(PathText::parentFolder(path)),
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

} // namespace ScanPrimitives
