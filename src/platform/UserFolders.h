#pragma once

#include <QString>

// The user's own folders as the caller determined them; the platform layer reads no
// environment for them. Empty XDG values mean "not set".
namespace Platform {

struct UserFolders
{
    QString home;       // absolute, no trailing slash
    QString dataHome;   // $XDG_DATA_HOME when absolute
    QString configHome; // $XDG_CONFIG_HOME when absolute
    QString cacheHome;  // $XDG_CACHE_HOME when absolute
};

// The user's cache folder: $XDG_CACHE_HOME when set, else the platform's own under home
// (~/.cache on Linux, ~/Library/Caches on macOS). Empty without an absolute home.
QString cacheFolder(const UserFolders &user);

} // namespace Platform
