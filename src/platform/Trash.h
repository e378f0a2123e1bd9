#pragma once

#include <QString>

// Moving one item to the user's Trash. The move either lands inside a Trash or fails and
// leaves the item where it was; it never copies, never deletes, never lands elsewhere.
namespace Platform {

enum class TrashFailure {
    none,
    missing,          // the item does not exist
    permissionDenied, // the item or the Trash cannot be written
    noTrash,          // no usable Trash on the item's volume (includes cross-device moves)
    nameTooLong,
    other, // see errorCode / systemText
};

struct TrashMove
{
    bool moved = false;
    QString trashedPath; // absolute path inside the Trash; empty when the system does not say
    TrashFailure failure = TrashFailure::none;
    int errorCode = 0;  // errno behind the failure, when there is one
    QString systemText; // the system's own localised description, when it offers one
};

// A symbolic link is moved as the link itself, also when the path ends in "/". Every
// folder below `anchor` on the way to the item must be a real folder, not a link; the
// move acts on the folder so reached, so swapping one for a link meanwhile makes the move
// fail or leaves it moving the very entry that was there, never another. `path` must lie
// below `anchor`; the anchor itself may be reached through links.
TrashMove moveToTrash(const QString &path, const QString &anchor = QStringLiteral("/"));

// The folder holding the home Trash's items: ~/.Trash on macOS, the XDG home Trash's
// files/ on Linux. It may not exist yet.
QString homeTrashItemsPath();

struct TrashEmptying
{
    bool emptied = true;
    int remaining = 0;         // entries that could not be removed (Linux)
    bool scriptFailed = false; // the system's emptying reported an error (macOS)
    QString systemText;        // its own message, when it gave one
};

// Empties the user's home Trash: the only true deletion in the whole system. On Linux it
// removes the entries of files/ and their info files and nothing else, never following a
// link and never acting outside the Trash folder.
TrashEmptying emptyTrash();

} // namespace Platform
