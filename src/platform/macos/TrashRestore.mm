#include "platform/TrashRestore.h"

#include "platform/NoLinkPath.h"
#include "platform/posix/Fd.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#import <Foundation/Foundation.h>

// Trash entries are ~/.Trash/<name> or <volume>/.Trashes/<uid>/<name>. macOS keeps no
// record beside them, so the log alone says where an item came from. The file manager's
// move fails when the destination exists (NSFileWriteFileExistsError) but would copy across
// volumes, so the device is compared first. The checks run just before the move; a short
// window remains, as for the move to the Trash.
namespace Platform {
namespace {

QByteArray parentOf(const QByteArray &path)
{
    const qsizetype slash = path.lastIndexOf('/');
    return slash <= 0 ? QByteArray("/") : path.left(slash);
}

bool isStandard(const QByteArray &path)
{
    if (!path.startsWith('/') || path == "/" || path.contains('\0'))
        return false;
    for (const QByteArray &part : path.mid(1).split('/')) {
        if (part.isEmpty() || part == "." || part == "..")
            return false;
    }
    return true;
}

bool isTrashFolder(const QByteArray &folder, const UserFolders &user)
{
    if (folder == QFile::encodeName(user.home) + "/.Trash")
        return true;
    const QByteArray uid = QByteArray::number(::geteuid());
    // A volume's own Trash sits at its top: /Volumes/<name>/.Trashes/<uid>.
    return folder.startsWith("/Volumes/") && folder.endsWith("/.Trashes/" + uid) &&
           folder.count('/') == 4;
}

struct Checked
{
    RestoreFailure failure = RestoreFailure::none;
    int errorCode = 0;
};

Checked check(const QByteArray &trashed, const QByteArray &original, const QByteArray &anchor,
              bool createFolders, const UserFolders &user)
{
    if (!isStandard(trashed) || !isStandard(original) || !isTrashFolder(parentOf(trashed), user))
        return {RestoreFailure::notInTrash};
    const QByteArray trash = parentOf(trashed);
    Fd trashFd(NoLinkPath::openFolder("/", trash.mid(1)));
    if (trashFd.get() < 0)
        return {errno == ELOOP ? RestoreFailure::throughLink : RestoreFailure::gone, errno};
    const QByteArray name = trashed.mid(trash.size() + 1);
    struct stat item = {};
    if (::fstatat(trashFd.get(), name.constData(), &item, AT_SYMLINK_NOFOLLOW) != 0)
        return {RestoreFailure::gone, errno};
    QByteArray relative;
    if (!NoLinkPath::relativeTo(anchor, parentOf(original), &relative))
        return {RestoreFailure::other, EINVAL};
    Fd folder(NoLinkPath::openFolder(anchor, relative));
    if (folder.get() < 0) {
        const int error = errno;
        if (NoLinkPath::passesThroughLink(anchor, relative))
            return {RestoreFailure::throughLink, error};
        return {createFolders && error == ENOENT ? RestoreFailure::none
                                                 : RestoreFailure::parentMissing,
                error};
    }
    struct stat st = {};
    const QByteArray leaf = original.mid(original.lastIndexOf('/') + 1);
    if (::fstatat(folder.get(), leaf.constData(), &st, AT_SYMLINK_NOFOLLOW) == 0)
        return {RestoreFailure::destinationExists, EEXIST};
    if (::fstat(folder.get(), &st) != 0 || st.st_dev != item.st_dev)
        return {RestoreFailure::crossDevice, EXDEV};
    return {};
}

} // namespace

RestoreFailure checkRestore(const QString &trashedPath, const QString &original,
                            const QString &anchor, bool createFolders, const UserFolders &user)
{
    return check(QFile::encodeName(trashedPath), QFile::encodeName(original),
                 QFile::encodeName(anchor), createFolders, user)
        .failure;
}

TrashRestore restoreFromTrash(const QString &trashedPath, const QString &original,
                              const QString &anchor, bool createFolders, const UserFolders &user)
{
    TrashRestore result;
    const Checked checked = check(QFile::encodeName(trashedPath), QFile::encodeName(original),
                                  QFile::encodeName(anchor), createFolders, user);
    result.failure = checked.failure;
    result.errorCode = checked.errorCode;
    if (checked.failure != RestoreFailure::none)
        return result;
    @autoreleasepool {
        NSFileManager *manager = NSFileManager.defaultManager;
        NSURL *to = [NSURL fileURLWithPath:original.toNSString() isDirectory:NO];
        NSError *error = nil;
        NSDictionary *privateFolder = @{NSFilePosixPermissions : @0700};
        if (createFolders && ![manager createDirectoryAtURL:to.URLByDeletingLastPathComponent
                                withIntermediateDirectories:YES
                                                 attributes:privateFolder
                                                      error:&error]) {
            result.failure = RestoreFailure::parentMissing;
            result.systemText = QString::fromNSString(error.localizedDescription);
            return result;
        }
        NSURL *from = [NSURL fileURLWithPath:trashedPath.toNSString() isDirectory:NO];
        if ([manager moveItemAtURL:from toURL:to error:&error]) {
            result.restored = true;
            return result;
        }
        result.failure = error.code == NSFileWriteFileExistsError
                             ? RestoreFailure::destinationExists
                             : RestoreFailure::other;
        result.systemText = QString::fromNSString(error.localizedDescription);
    }
    return result;
}

// One by one: the file manager's moves are not worth splitting.
void restoreAll(const QList<RestoreRequest> &requests, const UserFolders &user,
                const Restored &restored)
{
    for (qsizetype i = 0; i < requests.size(); ++i) {
        const RestoreRequest &request = requests[i];
        restored(i, restoreFromTrash(request.trashedPath, request.original, request.anchor,
                                     request.createFolders, user));
    }
}

} // namespace Platform
