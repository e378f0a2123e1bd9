#include "platform/Trash.h"

#include "platform/NoLinkPath.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#import <Foundation/Foundation.h>

namespace {

using Platform::TrashFailure;

TrashFailure failureForPosix(int code)
{
    switch (code) {
    case ENOENT:
        return TrashFailure::missing;
    case EACCES:
    case EPERM:
        return TrashFailure::permissionDenied;
    case ENAMETOOLONG:
        return TrashFailure::nameTooLong;
    case EXDEV:
        return TrashFailure::noTrash;
    default:
        return TrashFailure::other;
    }
}

TrashFailure failureForCocoa(NSInteger code)
{
    switch (code) {
    case NSFileNoSuchFileError:
    case NSFileReadNoSuchFileError:
        return TrashFailure::missing;
    case NSFileWriteNoPermissionError:
    case NSFileReadNoPermissionError:
        return TrashFailure::permissionDenied;
    case NSFeatureUnsupportedError: // the volume has no Trash
        return TrashFailure::noTrash;
    default:
        return TrashFailure::other;
    }
}

// The errno behind a Cocoa error sits one or more NSUnderlyingErrorKey hops down, or is the
// error itself.
NSError *posixCause(NSError *error)
{
    for (int hops = 0; error != nil && hops < 8; ++hops) {
        if ([error.domain isEqualToString:NSPOSIXErrorDomain])
            return error;
        id underlying = error.userInfo[NSUnderlyingErrorKey];
        if ([underlying isKindOfClass:[NSError class]])
            error = underlying;
        else
            error = nil;
    }
    return nil;
}

// A Cocoa code that names the failure wins; a generic one ("couldn't write", "already
// exists") defers to the errno beneath when that names it.
void describeFailure(NSError *error, Platform::TrashMove &move)
{
    move.moved = false;
    move.failure = TrashFailure::other;
    if (error == nil)
        return;
    move.systemText = QString::fromNSString(error.localizedDescription);
    if ([error.domain isEqualToString:NSCocoaErrorDomain])
        move.failure = failureForCocoa(error.code);
    if (NSError *posix = posixCause(error)) {
        move.errorCode = static_cast<int>(posix.code);
        if (move.failure == TrashFailure::other)
            move.failure = failureForPosix(move.errorCode);
    }
}

} // namespace

Platform::TrashMove Platform::moveToTrash(const QString &path, const QString &anchor,
                                          const UserFolders &)
{
    TrashMove move;

    // An empty name has no file URL (Foundation raises on it), and a NUL cannot reach lstat.
    if (path.isEmpty() || path.contains(QChar(u'\0'))) {
        move.failure = path.isEmpty() ? TrashFailure::missing : TrashFailure::other;
        move.errorCode = path.isEmpty() ? ENOENT : EINVAL;
        return move;
    }

    // "link/" would name the link's target; the item meant is the link.
    QString itemPath = path;
    while (itemPath.size() > 1 && itemPath.endsWith(QLatin1Char('/')))
        itemPath.chop(1);

    // Every folder below the anchor must be a real one (O_NOFOLLOW_ANY, macOS 11). The file
    // manager takes a path, not a descriptor, so a window remains between this check and its
    // move in which a folder could be swapped for a link; Foundation offers no way to close it.
    {
        const QString cleanItem = QDir::cleanPath(itemPath);
        const QString cleanAnchor = QDir::cleanPath(anchor);
        QByteArray relative;
        const int slash = int(cleanItem.lastIndexOf(QLatin1Char('/')));
        const QString parent = slash <= 0 ? QStringLiteral("/") : cleanItem.left(slash);
        if (!NoLinkPath::relativeTo(QFile::encodeName(cleanAnchor), QFile::encodeName(parent),
                                    &relative)) {
            move.failure = TrashFailure::other;
            move.errorCode = EINVAL;
            return move;
        }
        const int folder = NoLinkPath::openFolder(QFile::encodeName(cleanAnchor), relative);
        if (folder < 0) {
            move.errorCode = errno == ENOTDIR ? ELOOP : errno;
            move.failure = move.errorCode == ENOENT ? TrashFailure::missing : TrashFailure::other;
            return move;
        }
        ::close(folder);
    }

    // lstat, not stat: a link to a folder must stay a file URL, or it would be resolved.
    struct stat info
    {
    };
    const QByteArray nativePath = QFile::encodeName(itemPath);
    const bool isDirectory = ::lstat(nativePath.constData(), &info) == 0 && S_ISDIR(info.st_mode);

    @autoreleasepool {
        NSURL *url = [NSURL fileURLWithPath:itemPath.toNSString() isDirectory:isDirectory];
        NSURL *trashedURL = nil;
        NSError *error = nil;
        BOOL trashed = NO;
        // Foundation raises on misuse; callers are worker threads that only take values.
        @try {
            trashed = [[NSFileManager defaultManager] trashItemAtURL:url
                                                    resultingItemURL:&trashedURL
                                                               error:&error];
        } @catch (NSException *exception) {
            move.failure = TrashFailure::other;
            move.systemText = QString::fromNSString(exception.reason);
            return move;
        }

        if (!trashed) {
            describeFailure(error, move);
            return move;
        }
        move.moved = true;
        if (trashedURL != nil && trashedURL.path != nil)
            move.trashedPath = QString::fromNSString(trashedURL.path);
    }
    return move;
}

QString Platform::homeTrashItemsPath(const UserFolders &user)
{
    const QString home = QDir::cleanPath(user.home);
    const QString fallback = home + QStringLiteral("/.Trash");

    // Foundation may find the home from the account record rather than from HOME. Its answer
    // is taken only inside the home this process sees, so a HOME pointed elsewhere (tests,
    // relocated homes) carries this path with it.
    @autoreleasepool {
        NSError *error = nil;
        NSURL *url = [[NSFileManager defaultManager] URLForDirectory:NSTrashDirectory
                                                            inDomain:NSUserDomainMask
                                                   appropriateForURL:nil
                                                              create:NO
                                                               error:&error];
        if (url == nil || url.path == nil)
            return fallback;

        const QString systemPath = QDir::cleanPath(QString::fromNSString(url.path));
        const QString homePrefix = home.endsWith(QLatin1Char('/')) ? home : home + QLatin1Char('/');
        if (!systemPath.startsWith(homePrefix))
            return fallback;
        return systemPath;
    }
}

// The file manager finds and prepares the Trash itself on every move; a batch only carries
// the user's folders.
struct Platform::TrashBatch::State
{
    UserFolders user;
};

Platform::TrashBatch::TrashBatch(UserFolders user)
    : m_state(std::make_unique<State>(State{std::move(user)}))
{
}

Platform::TrashBatch::~TrashBatch() = default;

Platform::TrashMove Platform::TrashBatch::move(const QString &path, const QString &anchor)
{
    return moveToTrash(path, anchor, m_state->user);
}

// One by one: the file manager's moves are not worth splitting.
void Platform::TrashBatch::moveAll(const QList<TrashRequest> &requests, const Moved &moved)
{
    for (qsizetype i = 0; i < requests.size(); ++i)
        moved(i, move(requests[i].path, requests[i].anchor));
}
