#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include "platform/UserFolders.h"

#include <functional>
#include <memory>
#include <optional>

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
TrashMove moveToTrash(const QString &path, const QString &anchor, const UserFolders &user);

// One item of a batch: what moveToTrash takes besides the user's folders.
struct TrashRequest
{
    QString path;
    QString anchor;
};

// Many moves as moveToTrash makes one, sharing what does not change between them: each
// Trash is found, prepared and opened on its first use and held open for the batch, and
// the anchors are opened once. Every item is still located and judged afresh; a Trash
// that went away meanwhile is prepared again. Not for use from two threads at once.
class TrashBatch final
{
public:
    explicit TrashBatch(UserFolders user);
    ~TrashBatch();
    TrashBatch(const TrashBatch &) = delete;
    TrashBatch &operator=(const TrashBatch &) = delete;

    TrashMove move(const QString &path, const QString &anchor);

    // Every request moved as move() moves it, in their order: `moved` is called in the
    // caller's thread right after each move, before the next item lands. Meanwhile, on
    // Linux, a second thread locates the next few items and writes their Trash records
    // ahead, which is half of what a move costs; a record whose item then cannot move is
    // taken out again, so the Trash ends as the moves one by one would leave it. An item
    // inside an earlier item of the batch is located only at its turn.
    using Moved = std::function<void(qsizetype index, const TrashMove &move)>;
    void moveAll(const QList<TrashRequest> &requests, const Moved &moved);

    struct State; // each platform's own

private:
    std::unique_ptr<State> m_state;
};

// The folder holding the home Trash's items: ~/.Trash on macOS, the XDG home Trash's
// files/ on Linux. It may not exist yet.
QString homeTrashItemsPath(const UserFolders &user);

// One entry of the home Trash as a confirmation counted it: its name and which file it was.
struct TrashEntry
{
    QByteArray name;
    quint64 device = 0;
    quint64 inode = 0;
};

// What the user agreed to delete: the entries present when the question was asked.
struct TrashContents
{
    QList<TrashEntry> entries;
    qint64 takenAtMs = 0; // since the epoch; info files older than this without an item go
};

struct TrashEmptying
{
    bool emptied = true;        // every counted entry is gone
    int remaining = 0;          // counted entries that could not be removed
    int kept = 0;               // entries that arrived after counting and were left alone
    bool scriptFailed = false;  // the system's emptying reported an error (macOS)
    bool stillEmptying = false; // the Finder was still at it when the wait ended (macOS)
    QString systemText;         // its own message, when it gave one
};

// Empties the user's home Trash: the only true deletion in the whole system. Only what
// `confirmed` counted goes (name, device and inode must still match); later arrivals stay.
// On Linux each counted entry is first renamed out of files/ into the Trash's private
// expunged/ folder and deleted there, so an entry restored or replaced meanwhile is never
// touched; info files go with their entries, and info files left without an item since
// before the count go too. Never follows a link, never acts outside the Trash. Without
// `confirmed` (the Trash could not be listed) nothing is known to be agreed: Linux removes
// nothing, macOS leaves it to the Finder.
TrashEmptying emptyTrash(const std::optional<TrashContents> &confirmed, const UserFolders &user);

} // namespace Platform
