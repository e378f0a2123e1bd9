#include "platform/UserFolders.h"

namespace Platform {

QString cacheFolder(const UserFolders &user)
{
    if (user.cacheHome.startsWith(u'/'))
        return user.cacheHome;
    return user.home.startsWith(u'/') ? user.home + QStringLiteral("/.cache") : QString();
}

} // namespace Platform
