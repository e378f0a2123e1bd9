#include "core/cleanup/SafetyGuard.h"

#include "core/plist/PlistReader.h"
#include "core/text/PathText.h"
#include "platform/NoLinkPath.h"

#include <QFile>
#include <QStringList>
#include <array>

namespace SafetyGuard {
namespace {

constexpr std::array<const char16_t *, 18> kProtectedPaths{
    u"Library/Mail",
    u"Library/Messages",
    u"Library/Keychains",
    u"Library/Application Support",
    u"Library/Mobile Documents",
    u"Library/CloudStorage",
    u"Library/Photos",
    u"Library/Accounts",
    u"Library/Calendars",
    u"Library/Contacts",
    u"Library/Safari",
    u"Library/Cookies",
    u"Library/Passes",
    u"Library/Wallet",
    u"Library/Group Containers/group.com.apple",
    u"Pictures/Photos Library.photoslibrary",
    u"Library/Developer/Xcode/UserData",
    u"Library/Developer/CoreSimulator/Devices",
};

constexpr std::array<const char16_t *, 9> kBadExtensions{
    u"photoslibrary", u"sparsebundle", u"sparseimage", u"vmdk",        u"vdi",
    u"utm",           u"pvm",          u"vmwarevm",    u"keychain-db",
};

// Plain string prefixes relative to home: "X/" admits only what is inside X, "X" also X.
QStringList allowedPrefixes(CleanCategory category)
{
    switch (category) {
    case CleanCategory::userCache:
        return {QStringLiteral("Library/Caches/")};
    case CleanCategory::logs:
        return {QStringLiteral("Library/Logs/")};
    case CleanCategory::ai:
        return {QStringLiteral(".cache/"),    QStringLiteral(".ollama/"),
                QStringLiteral(".lmstudio/"), QStringLiteral(".npm/"),
                QStringLiteral(".cursor/"),   QStringLiteral("Library/Caches/")};
    case CleanCategory::developer:
        return {QStringLiteral("Library/Developer/Xcode/DerivedData"),
                QStringLiteral("Library/Developer/Xcode/iOS DeviceSupport"),
                QStringLiteral("Library/Developer/CoreSimulator/Caches"),
                QStringLiteral("Library/Developer/Xcode/Archives"),
                QStringLiteral("Library/Caches/")};
    case CleanCategory::leftovers:
        return {QStringLiteral("Library/Containers/"),
                QStringLiteral("Library/Group Containers/"),
                QStringLiteral("Library/Preferences/"),
                QStringLiteral("Library/Caches/"),
                QStringLiteral("Library/Saved Application State/"),
                QStringLiteral("Library/HTTPStorages/"),
                QStringLiteral("Library/WebKit/"),
                QStringLiteral("Library/Application Scripts/"),
                QStringLiteral("Library/Logs/")};
    case CleanCategory::largeFiles:
        return {QString()};
    case CleanCategory::unusedApps:
        return {};
    }
    return {};
}

// The move resolves every folder on the way; a link among them would carry it somewhere
// no rule above has judged. The item itself may be a link: it moves as one.
std::optional<Refusal> linkRefusal(const QString &standard, const Locations &where)
{
    const QString base = anchor(standard, where);
    const QString parent = PathText::parentFolder(standard);
    QByteArray relative;
    if (!Platform::NoLinkPath::relativeTo(QFile::encodeName(base), QFile::encodeName(parent),
                                          &relative))
        return std::nullopt;
    if (Platform::NoLinkPath::passesThroughLink(QFile::encodeName(base), relative))
        return Refusal::symbolicLink;
    return std::nullopt;
}

std::optional<Refusal> applicationRefusal(const QString &path, const QString &standard,
                                          const QString &home)
{
    // Extension and parent come from the path as passed, not from the standardised one.
    if (PathText::extension(path) != u"app")
        return Refusal::notAnApplication;
    const QString parent = PathText::parentFolder(path);
    if (parent != u"/Applications" && parent != home + QStringLiteral("/Applications"))
        return Refusal::notAnApplication;
    const auto info = PlistReader::readDictionary(standard + QStringLiteral("/Contents/Info.plist"),
                                                  {QStringLiteral("CFBundleIdentifier")});
    if (!info)
        return std::nullopt; // unreadable: allowed
    const QVariant identifier = info->value(QStringLiteral("CFBundleIdentifier"));
    if (identifier.typeId() == QMetaType::QString &&
        identifier.toString().startsWith(u"com.apple."))
        return Refusal::appleApplication;
    return std::nullopt;
}

} // namespace

QString anchor(const QString &standardPath, const Locations &where)
{
    return standardPath.startsWith(where.home() + u'/') ? where.home() : QStringLiteral("/");
}

bool isProtectedExtension(QStringView extension)
{
    return std::any_of(kBadExtensions.begin(), kBadExtensions.end(), [&](const char16_t *bad) {
        return extension.compare(QStringView(bad), Qt::CaseInsensitive) == 0;
    });
}

std::optional<Refusal> refusal(const QString &path, CleanCategory category, const Locations &where)
{
    const QString p = PathText::standardized(path);
    if (category == CleanCategory::unusedApps) {
        if (auto refused = applicationRefusal(path, p, where.home()))
            return refused;
        return linkRefusal(p, where);
    }

    const QString &h = where.home();
    if (!p.startsWith(h + u'/'))
        return Refusal::outsideHome;
    const QString rel = p.mid(h.size() + 1);
    if (rel.isEmpty())
        return Refusal::outsideHome;
    if (rel == u"Library")
        return Refusal::insideLibrary;
    if (category == CleanCategory::largeFiles && rel.startsWith(u"Library/"))
        return Refusal::insideLibrary;
    for (const char16_t *entry : kProtectedPaths) {
        const QString e = QString::fromUtf16(entry);
        if (rel == e || rel.startsWith(e + u'/'))
            return Refusal::protectedLocation;
    }
    // Undoing a clean-up reads the removal log back: it is never cleaned up itself.
    if (const QString log = where.removalLogFolder(); p == log || p.startsWith(log + u'/'))
        return Refusal::protectedLocation;
    if (isProtectedExtension(PathText::extension(path)))
        return Refusal::protectedExtension;
    if (rel.contains(u"Backups.backupdb") || rel.startsWith(u".Trash"))
        return Refusal::protectedLocation;
    const QStringList prefixes = allowedPrefixes(category);
    const bool admitted = std::any_of(prefixes.begin(), prefixes.end(), [&](const QString &prefix) {
        return rel.startsWith(prefix);
    });
    if (!admitted)
        return Refusal::notCleanable;
    return linkRefusal(p, where);
}

} // namespace SafetyGuard
