#pragma once

#include "platform/UserFolders.h"

#include <QString>
#include <QStringList>

// Every place the engine looks at or writes to, derived from the home folder once. Each
// front end builds one in its composition root and hands it down; nothing else reads the
// environment for a path. A test builds one for its temporary home.
class Locations final
{
public:
    // The application folders, one list; each scan takes the part it is about.
    enum class Apps {
        userFacing, // /Applications and ~/Applications: what people install and remove
        updatable,  // those and /Applications/Utilities: what the update check reads
        installed,  // every folder the system keeps applications in: what counts as present
    };

    // From QDir::homePath() and the XDG variables: the one read of them.
    static Locations fromEnvironment();
    // `home` absolute; the XDG folders empty unless set to absolute paths.
    explicit Locations(const QString &home, const Platform::UserFolders &xdg = {});

    const QString &home() const { return m_folders.home; }
    const Platform::UserFolders &userFolders() const { return m_folders; }

    // home + "/" + relative; "~/x" and "x" mean the same.
    QString inHome(const QString &relative) const;
    QString library(const QString &relative) const
    {
        return inHome(QStringLiteral("Library/") + relative);
    }
    // ~/Library/Logs/Quorvel and the log in it.
    QString removalLogFolder() const;
    QString removalLog() const;
    QStringList applicationFolders(Apps which) const;

    // `path` with the home folder's prefix shown as "~".
    QString tilde(const QString &path) const;
    // True when `path` (standardized) is the home folder or lies inside it.
    bool contains(const QString &path) const;

private:
    Platform::UserFolders m_folders;
};
