#include "core/cleanup/CleanScanners.h"

#include "core/AppIdentity.h"
#include "core/cleanup/ScanPrimitives.h"
#include "core/disk/DiskScanner.h"
#include "core/disk/Listing.h"
#include "core/text/PathText.h"
#include "core/words/ScanWords.h"
#include "platform/DateText.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace Cleaner {
namespace {

// mdls prints dates as "2024-03-05 14:22:10 +0000" whatever the user's locale.
std::optional<QDateTime> parseSpotlightDate(const QString &text)
{
    static const QRegularExpression pattern(
        u"^([0-9]{4})-([0-9]{2})-([0-9]{2}) ([0-9]{2}):([0-9]{2}):([0-9]{2}) "
        "([+-])([0-9]{2}):?([0-9]{2})$"_s);
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    const auto field = [&](int n) { return match.capturedView(n).toInt(); };
    const QDate date(field(1), field(2), field(3));
    const QTime time(field(4), field(5), field(6));
    const int offsetHours = field(8);
    const int offsetMinutes = field(9);
    if (!date.isValid() || !time.isValid() || offsetHours > 23 || offsetMinutes > 59)
        return std::nullopt;
    const int sign = match.capturedView(7) == u"-" ? -1 : 1;
    const qint64 offset = sign * (offsetHours * 3600 + offsetMinutes * 60);
    return QDateTime(date, time, Qt::UTC).addSecs(-offset);
}

std::optional<QDateTime> spotlightDate(const QString &appPath, const System &system)
{
    const std::optional<QString> output = system.runTool(
        u"/usr/bin/mdls"_s, {u"-name"_s, u"kMDItemLastUsedDate"_s, u"-raw"_s, appPath}, 10.0);
    if (!output)
        return std::nullopt;
    const QString text = output->trimmed();
    if (text.isEmpty() || text == u"(null)"_s)
        return std::nullopt;
    return parseSpotlightDate(text);
}

// The executable's last-access time, from its metadata only: opening it would itself
// count as an access.
std::optional<QDateTime> accessDate(const QString &executablePath)
{
    struct stat st;
    if (stat(QFile::encodeName(executablePath).constData(), &st) != 0)
        return std::nullopt;
    return QDateTime::fromMSecsSinceEpoch(
        qint64(st.st_atim.tv_sec) * 1000 + st.st_atim.tv_nsec / 1000000, Qt::UTC);
}

QSet<QString> runningBundlePaths(const System &system)
{
    QSet<QString> paths;
    for (const Platform::RunningApplication &app : system.runningApplications()) {
        if (!app.bundlePath.isEmpty())
            paths.insert(PathText::standardized(app.bundlePath));
    }
    return paths;
}

} // namespace

std::optional<QDateTime> lastUsed(const QString &appPath, const System &system)
{
    const std::optional<QDateTime> spotlight = spotlightDate(appPath, system);
    const std::optional<QString> executable =
        ScanPrimitives::infoString(appPath, "CFBundleExecutable");
    if (!executable)
        return spotlight;
    const std::optional<QDateTime> accessed =
        accessDate(appPath + u"/Contents/MacOS/"_s + *executable);
    if (!accessed)
        return spotlight;
    if (spotlight && *spotlight > *accessed)
        return spotlight;
    return accessed;
}

QList<CleanItem> unusedApps(int days, const QStringList &folders, const System &system)
{
    const Locations &where = system.where();
    const QDateTime cutoff = system.now().addSecs(-qint64(days) * 86400);
    const QSet<QString> running = runningBundlePaths(system);
    const QString ownID = QString::fromLatin1(kQuorvelBundleIdentifier);
    const QString lastOpened = Words::lastOpened();
    QList<CleanItem> items;
    for (const QString &folder : folders) {
        for (const QString &name : Listing::entryNames(folder, where, Listing::Hidden::keep)) {
            if (!name.endsWith(u".app"_s))
                continue;
            const QString path = folder + u'/' + name;
            const std::optional<QString> id =
                ScanPrimitives::infoString(path, "CFBundleIdentifier");
            if (!id || id->startsWith(u"com.apple."_s) || *id == ownID ||
                running.contains(PathText::standardized(path)))
                continue;
            const std::optional<QDateTime> used = lastUsed(path, system);
            if (!used || !(*used < cutoff))
                continue;
            // Sizes come from the walker's stat calls alone, so measuring changes no
            // access date.
            const qint64 bytes = DiskScanner::directorySize(path);
            items.append({path, name.chopped(4),
                          lastOpened + u' ' + Platform::mediumDate(*used) + u" · "_s + folder,
                          bytes, CleanCategory::unusedApps, CleanMethod::trash});
        }
    }
    ScanPrimitives::sortBySize(items);
    return items;
}

} // namespace Cleaner
