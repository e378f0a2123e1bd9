#include "core/system/Locations.h"

#include "core/text/PathText.h"

#include <QDir>
#include <array>

using namespace Qt::StringLiterals;

namespace {

// XDG ignores relative values.
QString absoluteOrEmpty(const QString &value)
{
    return value.startsWith(u'/') ? PathText::standardized(value) : QString();
}

struct AppFolder
{
    const char16_t *path; // "~/" is the home folder
    bool userFacing;
    bool updatable;
};

// Every application folder, in the order scans list them.
constexpr std::array<AppFolder, 6> kAppFolders{{
    {u"/Applications", true, true},
    {u"/Applications/Utilities", false, true},
    {u"/System/Applications", false, false},
    {u"/System/Applications/Utilities", false, false},
    {u"/System/Library/CoreServices", false, false},
    {u"~/Applications", true, true},
}};

} // namespace

Locations Locations::fromEnvironment()
{
    Platform::UserFolders xdg;
    xdg.dataHome = absoluteOrEmpty(qEnvironmentVariable("XDG_DATA_HOME"));
    xdg.configHome = absoluteOrEmpty(qEnvironmentVariable("XDG_CONFIG_HOME"));
    xdg.cacheHome = absoluteOrEmpty(qEnvironmentVariable("XDG_CACHE_HOME"));
    return Locations(QDir::homePath(), xdg);
}

Locations::Locations(const QString &home, const Platform::UserFolders &xdg) : m_folders(xdg)
{
    m_folders.home = PathText::standardized(home);
}

QString Locations::inHome(const QString &relative) const
{
    QStringView rest(relative);
    if (rest.startsWith(u'~'))
        rest = rest.mid(1);
    while (rest.startsWith(u'/'))
        rest = rest.mid(1);
    return home() == u"/" ? u'/' + rest.toString() : home() + u'/' + rest.toString();
}

QString Locations::removalLogFolder() const
{
    return library(u"Logs/Quorvel"_s);
}

QString Locations::removalLog() const
{
    return removalLogFolder() + u"/removals.log"_s;
}

QStringList Locations::applicationFolders(Apps which) const
{
    QStringList folders;
    for (const AppFolder &folder : kAppFolders) {
        const bool wanted = which == Apps::installed ||
                            (which == Apps::userFacing && folder.userFacing) ||
                            (which == Apps::updatable && folder.updatable);
        if (!wanted)
            continue;
        const QString path = QString::fromUtf16(folder.path);
        folders.append(path.startsWith(u'~') ? inHome(path) : path);
    }
    return folders;
}

QString Locations::tilde(const QString &path) const
{
    if (home().isEmpty() || home() == u"/")
        return path;
    if (path == home())
        return u"~"_s;
    if (path.startsWith(home()) && path.size() > home().size() && path.at(home().size()) == u'/')
        return u'~' + path.mid(home().size());
    return path;
}

bool Locations::contains(const QString &path) const
{
    return path == home() || path.startsWith(home() + u'/');
}
