#pragma once

#include "platform/Trash.h"
#include "platform/linux/XdgTrashPaths.h"
#include "platform/posix/Fd.h"

#include <QByteArray>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sys/types.h>
#include <variant>

// What a batch of XDG Trash moves keeps between items, and a move cut in two: staging
// (locate the item, pick its Trash, write its record) and landing (the rename). The pipeline
// stages ahead on one thread and lands on the other; a single move does both in turn.
namespace Platform::XdgTrash {

// The item as the move will act on it: its folder held open, reached from the anchor
// without passing through a link, so that relinking any folder on the way afterwards
// changes nothing about which entry moves.
struct Item
{
    Fd parent;
    QByteArray path; // the anchor resolved, then the link-free rest
    QByteArray name;
    dev_t device = 0; // of the entry, not of what a link points to
};

// An anchor opened once per batch, with its path resolved: the item's folder is walked to
// from this descriptor, and its real path is this one plus the link-free rest.
struct Anchor
{
    Fd fd;
    QByteArray real;
};

// A Trash ready to receive: files/ and info/ held open and used by descriptor from here
// on. Shared, so that an item staged into it keeps its descriptors even when the batch
// drops it for having gone away.
struct OpenTrash
{
    Folder folder;
    QByteArray real; // folder.path resolved: nothing inside it, nor above it, may go in
    Fd files;
    Fd info;
};

// An item whose record is written: info/<stored>.trashinfo exists, files/<stored> is next.
struct Staged
{
    Item item;
    std::shared_ptr<OpenTrash> trash;
    QByteArray stored;
    int attempt = 0;                               // the storedName attempt that `stored` is
    int preparations = 0;                          // how often a Trash was prepared for this item
    std::chrono::steady_clock::time_point written; // the record
};

// Why a landing did not end the move: the name was taken in files/, files/ is gone, or the
// record is (an emptying takes records without an item once they are old enough).
enum class Retry { nameTaken, trashGone, recordGone };

} // namespace Platform::XdgTrash

struct Platform::TrashBatch::State
{
    UserFolders user;
    // Held for everything below except land(): the maps are shared by both threads.
    std::mutex mutex;
    std::map<QByteArray, XdgTrash::Anchor> anchors;
    std::optional<QByteArray> home;  // the home Trash's path, once looked up
    std::optional<dev_t> homeDevice; // where it lives, or will once created
    std::map<dev_t, std::shared_ptr<XdgTrash::OpenTrash>> trashes; // by the file system

    // Locates the item and writes its record; a failure when it cannot go.
    std::variant<XdgTrash::Staged, TrashMove> stage(const QString &path, const QString &anchor);
    // After a landing said Retry: a new record (the next name, or in a Trash prepared once
    // more); nullopt when there is one, else the move's failure.
    std::optional<TrashMove> restage(XdgTrash::Staged &staged, XdgTrash::Retry why);
    // Lands and restages until the move ends.
    TrashMove finish(XdgTrash::Staged staged);

    // The rename; needs no lock. Its record is removed again when the item does not move.
    static std::variant<TrashMove, XdgTrash::Retry> land(const XdgTrash::Staged &staged);

private:
    std::variant<std::shared_ptr<XdgTrash::OpenTrash>, TrashMove>
    trashFor(const XdgTrash::Item &item);
    std::optional<TrashMove> claim(XdgTrash::Staged &staged, int firstAttempt);
    void forget(const std::shared_ptr<XdgTrash::OpenTrash> &trash);
};
