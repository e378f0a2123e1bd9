#pragma once

#include "platform/UserFolders.h"

#include <QList>
#include <QString>

#include <functional>

// Putting one item that a clean-up moved to the Trash back where it was. Both paths come
// from a log the user can edit, so neither is trusted: the item must lie directly inside a
// Trash's item folder reached without a link, the way back to the original's folder holds
// no link either, and the move is a rename that never replaces anything. Nothing is copied.
namespace Platform {

enum class RestoreFailure {
    none,
    gone,              // nothing at the path in the Trash (restored or deleted meanwhile)
    destinationExists, // something stands at the original path; the item stays in the Trash
    notInTrash,        // the path does not name an entry directly inside a Trash
    throughLink,       // a link on the way to the Trash entry or to the original's folder
    recordMismatch,    // Linux: no .trashinfo beside the item, or it names another place
    parentMissing,     // the original's folder is gone and may not be recreated here
    permissionDenied,
    crossDevice, // the original's folder is on another file system than the Trash
    other,       // see errorCode / systemText
};

struct TrashRestore
{
    bool restored = false;
    RestoreFailure failure = RestoreFailure::none;
    int errorCode = 0;
    QString systemText;
    bool recordKept = false; // Linux: restored, but the .trashinfo could not be removed
};

// Whether `trashedPath` could be put back at `original` now, checked without moving.
// `original` must lie below `anchor` (the home folder, or "/" for what lies outside it).
RestoreFailure checkRestore(const QString &trashedPath, const QString &original,
                            const QString &anchor, bool createFolders, const UserFolders &user);

// Moves the Trash entry back to `original`. Missing folders on the way below `anchor` are
// created (0700) only when `createFolders`; otherwise a missing folder is parentMissing.
// On Linux the .trashinfo goes once the item is back, and only then.
TrashRestore restoreFromTrash(const QString &trashedPath, const QString &original,
                              const QString &anchor, bool createFolders, const UserFolders &user);

// One item of restoreAll: restoreFromTrash's arguments besides the user's folders.
struct RestoreRequest
{
    QString trashedPath;
    QString original;
    QString anchor;
    bool createFolders = false;
};

// Every request restored as restoreFromTrash restores it, in their order: `restored` is
// called in the caller's thread right after each, before the next item moves. On Linux a
// second thread finds the next few entries, checks their records and opens their original
// folders meanwhile; a folder that an earlier item is, or lies inside, is opened only at
// its turn, once the items before it are back.
using Restored = std::function<void(qsizetype index, const TrashRestore &result)>;
void restoreAll(const QList<RestoreRequest> &requests, const UserFolders &user,
                const Restored &restored);

} // namespace Platform
