#pragma once

#include "platform/Trash.h"

#include <QByteArray>
#include <QString>

#include <optional>
#include <sys/types.h>

// Finding and preparing the XDG Trash folders an item can go to. Paths are raw file-name
// bytes (QFile::encodeName), absolute and without trailing slashes, so names that are not
// valid UTF-8 survive the trip.
namespace Platform::XdgTrash {

// $XDG_DATA_HOME/Trash when that is set, else ~/.local/share/Trash. Empty without an
// absolute home; the account database is deliberately not consulted.
QByteArray homeTrashPath(const UserFolders &user);

// The folder the home Trash is built on ($XDG_DATA_HOME, else the home folder); the Trash
// must resolve to somewhere inside it.
QByteArray trashBase(const UserFolders &user);

// The file system a path lives on, or would live on once created: the nearest existing
// ancestor answers for missing folders. Links are followed, as a later mkdir would.
std::optional<dev_t> deviceOf(QByteArray path);

// A Trash folder ready to receive: files/ and info/ exist below `path`.
struct Folder
{
    QByteArray path;
    // The mount's top folder that Path= is relative to; empty for the home Trash, whose
    // Path= entries are absolute.
    QByteArray topDir;
    TrashFailure failure = TrashFailure::none;
    int errorCode = 0;
};

// Creates whatever is missing of the home Trash, folders private to the user. Links on the
// way are followed: a relocated ~/.local/share is the user's choice.
Folder prepareHomeTrash(const QByteArray &trashPath);

// The Trash for an item on another file system than the home Trash: the shared
// $topdir/.Trash/$uid when the administrator set one up, else $topdir/.Trash-$uid. Shared
// ground, so links and folders owned by others are refused rather than followed.
// `realDir` is a link-free folder on that file system, `device` its st_dev.
Folder prepareTopTrash(const QByteArray &realDir, dev_t device);

// The name to store the item under on the n-th attempt (n from 1): the name itself, then
// "stem.n.ext". Shortened, never inside a UTF-8 sequence, so that the .trashinfo name still
// fits NAME_MAX.
QByteArray storedName(const QByteArray &name, int attempt);

// The complete .trashinfo text; `path` is absolute for the home Trash and relative to the
// top folder otherwise.
QByteArray infoText(const QByteArray &path);

// renameat(2) that fails with EEXIST instead of replacing an existing target: 0 or the
// errno. File systems without RENAME_NOREPLACE get a look-then-rename, as close as they
// allow.
int renameNoReplace(int fromDir, const char *from, int toDir, const char *to);

// The path with every link resolved, or nullopt with errno set.
std::optional<QByteArray> realPath(const QByteArray &path);

// "/a" + "b" without doubling the slash when dir is "/".
QByteArray joined(const QByteArray &dir, const QByteArray &name);

// The folder holding `path`; "/" for top-level entries and for "/" itself.
QByteArray parentOf(const QByteArray &path);

// Absolute, without ".", "..", empty components or trailing slashes: the form the guard
// judged, so that "link/" names the link and ".." cannot climb out of a checked folder.
QByteArray standardized(const QString &given);

// Already in that form, and neither "/" nor holding a NUL.
bool isStandard(const QByteArray &path);

} // namespace Platform::XdgTrash
