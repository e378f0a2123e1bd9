#include "core/updates/Inventory.h"

#include "core/disk/Listing.h"
#include "core/plist/PlistReader.h"

#include <QDir>
#include <QFileInfo>
#include <QVariant>

using namespace Qt::StringLiterals;

namespace {

// A value of any other kind (a number, a date, a dictionary) counts as absent.
std::optional<QString> textValue(const QVariantMap &info, const QString &key)
{
    const auto it = info.constFind(key);
    if (it == info.cend() || it->typeId() != QMetaType::QString)
        return std::nullopt;
    return it->toString();
}

std::optional<AppInfo> readBundle(const QString &folder, const QString &entry)
{
    AppInfo app;
    app.path = folder + u'/' + entry;
    const std::optional<QVariantMap> info = PlistReader::readDictionary(
        app.path + u"/Contents/Info.plist"_s,
        {u"CFBundleIdentifier"_s, u"CFBundleShortVersionString"_s, u"CFBundleVersion"_s,
         u"SUFeedURL"_s, u"CFBundleDisplayName"_s, u"CFBundleName"_s});
    if (!info)
        return std::nullopt;
    std::optional<QString> bundleID = textValue(*info, u"CFBundleIdentifier"_s);
    if (!bundleID)
        return std::nullopt;
    app.bundleID = *bundleID;
    app.shortVersion = textValue(*info, u"CFBundleShortVersionString"_s).value_or(QString());
    app.build = textValue(*info, u"CFBundleVersion"_s).value_or(QString());
    app.feed = textValue(*info, u"SUFeedURL"_s);
    // Only presence matters: the receipt is the App Store's to validate, not ours.
    app.mas = QFileInfo::exists(app.path + u"/Contents/_MASReceipt/receipt"_s);
    if (std::optional<QString> display = textValue(*info, u"CFBundleDisplayName"_s))
        app.name = *display;
    else
        app.name = textValue(*info, u"CFBundleName"_s).value_or(entry.chopped(4));
    return app;
}

} // namespace

QList<AppInfo> Inventory::applications(const QStringList &folders, const Locations &where)
{
    QList<AppInfo> apps;
    for (const QString &folder : folders) {
        // The file system's own order, hidden names included: the checker sorts its
        // findings later, and the same bundle reached twice is reported twice on purpose.
        const QStringList entries = Listing::entryNames(folder, where, Listing::Hidden::keep);
        for (const QString &entry : entries) {
            if (!entry.endsWith(u".app"_s, Qt::CaseSensitive))
                continue;
            if (std::optional<AppInfo> app = readBundle(folder, entry))
                apps.append(std::move(*app));
        }
    }
    return apps;
}
