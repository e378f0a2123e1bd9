#include "core/cleanup/SafetyGuard.h"

#include "core/plist/PlistReader.h"
#include "core/text/L10n.h"
#include "core/text/PathText.h"
#include "platform/NoLinkPath.h"

#include <QDir>
#include <QFile>
#include <QStringList>
#include <array>

namespace SafetyGuard {
namespace {

// $HOME as this process sees it, fixed at first use (thread-safe static init).
const QString &home()
{
    static const QString path = PathText::standardized(QDir::homePath());
    return path;
}

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

QString outsideHome()
{
    return L10n::pick(QStringLiteral("outside your home folder — refused"),
                      QStringLiteral("不在个人文件夹内，拒绝"));
}
QString insideLibrary()
{
    return L10n::pick(QStringLiteral("inside Library — refused"),
                      QStringLiteral("资源库内的文件，拒绝"));
}
QString protectedLocation()
{
    return L10n::pick(QStringLiteral("protected location — refused"),
                      QStringLiteral("受保护位置，拒绝"));
}
QString protectedType()
{
    return L10n::pick(QStringLiteral("protected file type — refused"),
                      QStringLiteral("受保护的文件类型，拒绝"));
}
QString notCleanable()
{
    return L10n::pick(QStringLiteral("not in a cleanable area — refused"),
                      QStringLiteral("不在允许清理的范围内，拒绝"));
}
QString notAnApp()
{
    return L10n::pick(QStringLiteral("not an app in Applications — refused"),
                      QStringLiteral("不是「应用程序」里的应用，拒绝"));
}
QString appleApp()
{
    return L10n::pick(QStringLiteral("Apple app — refused"),
                      QStringLiteral("Apple 自带应用，拒绝"));
}

QString throughLink()
{
    return L10n::pick(QStringLiteral("path goes through a symbolic link — refused"),
                      QStringLiteral("路径经过符号链接 — 已拒绝"));
}

// The move resolves every folder on the way; a link among them would carry it somewhere
// no rule above has judged. The item itself may be a link: it moves as one.
std::optional<QString> linkRefusal(const QString &standard)
{
    const QString base = anchor(standard);
    const QString parent = PathText::parentFolder(standard);
    QByteArray relative;
    if (!Platform::NoLinkPath::relativeTo(QFile::encodeName(base), QFile::encodeName(parent),
                                          &relative))
        return std::nullopt;
    if (Platform::NoLinkPath::passesThroughLink(QFile::encodeName(base), relative))
        return throughLink();
    return std::nullopt;
}

std::optional<QString> applicationRefusal(const QString &path, const QString &standard)
{
    // Extension and parent come from the path as passed, not from the standardised one.
    if (PathText::extension(path) != u"app")
        return notAnApp();
    const QString parent = PathText::parentFolder(path);
    if (parent != u"/Applications" && parent != home() + QStringLiteral("/Applications"))
        return notAnApp();
    const auto info = PlistReader::readDictionary(standard + QStringLiteral("/Contents/Info.plist"),
                                                  {QStringLiteral("CFBundleIdentifier")});
    if (!info)
        return std::nullopt; // unreadable: allowed
    const QVariant identifier = info->value(QStringLiteral("CFBundleIdentifier"));
    if (identifier.typeId() == QMetaType::QString &&
        identifier.toString().startsWith(u"com.apple."))
        return appleApp();
    return std::nullopt;
}

} // namespace

QString anchor(const QString &standardPath)
{
    const QString &h = home();
    return standardPath.startsWith(h + u'/') ? h : QStringLiteral("/");
}

std::optional<QString> refusal(const QString &path, CleanCategory category)
{
    const QString p = PathText::standardized(path);
    if (category == CleanCategory::unusedApps) {
        if (auto refused = applicationRefusal(path, p))
            return refused;
        return linkRefusal(p);
    }

    const QString &h = home();
    if (!p.startsWith(h + u'/'))
        return outsideHome();
    const QString rel = p.mid(h.size() + 1);
    if (rel.isEmpty())
        return outsideHome();
    if (rel == u"Library")
        return insideLibrary();
    if (category == CleanCategory::largeFiles && rel.startsWith(u"Library/"))
        return insideLibrary();
    for (const char16_t *entry : kProtectedPaths) {
        const QString e = QString::fromUtf16(entry);
        if (rel == e || rel.startsWith(e + u'/'))
            return protectedLocation();
    }
    const QString ext = PathText::extension(path).toLower();
    for (const char16_t *bad : kBadExtensions) {
        if (ext == QStringView(bad))
            return protectedType();
    }
    if (rel.contains(u"Backups.backupdb") || rel.startsWith(u".Trash"))
        return protectedLocation();
    const QStringList prefixes = allowedPrefixes(category);
    const bool admitted = std::any_of(prefixes.begin(), prefixes.end(), [&](const QString &prefix) {
        return rel.startsWith(prefix);
    });
    if (!admitted)
        return notCleanable();
    return linkRefusal(p);
}

} // namespace SafetyGuard
