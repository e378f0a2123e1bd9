#pragma once

#include "platform/DirReader.h"
#include <QByteArray>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

// The one physical walk behind every measurement: openat/fstatat/readdir, links never
// followed, the working folder never changed, folders in the file system's own order,
// no string built per entry. Memory is bounded by depth, not by the size of the tree.
namespace DiskWalker {

struct Entry
{
    int dirFd;        // the folder holding the entry
    const char *name; // valid during the callback only
    size_t nameLength;
    int depth;             // 1 for the root's direct entries
    unsigned char type;    // DT_REG, DT_DIR, DT_LNK, ...; never DT_UNKNOWN
    const struct stat *st; // for regular files when the visitor wants it, else nullptr
};

// Folders deeper than this are not entered: every level holds one open folder, and
// no real tree comes near it (it is well past PATH_MAX with any realistic names).
inline constexpr int kMaxDepth = 400;

// Opens a folder for walking without following a final symbolic link; -1 on failure.
int openFolder(int dirFd, const char *name);
int openRoot(const QByteArray &path);

// Asks for more open files once, so deep trees and parallel walks do not run out.
void ensureFileLimit();

// Fills in the type of an entry whose d_type the file system did not give.
unsigned char typeOf(const struct stat &st);

// Walks the folder open at `rootFd` (taking ownership). The visitor provides:
//   bool wantsStat(unsigned char type)     stat this kind of entry before reporting it
//   bool enter(const Entry &)              a folder: descend into it?
//   void leave(int depth)                  after a folder's contents (depth of the folder)
//   void file(const Entry &)               anything that is not a folder
//   bool stop()                            polled before each entry
// `path` (when non-null) holds the entry's folder relative to the root while a callback
// runs ("" at depth 1, "a/b" below), so results can be named without per-entry strings.
template <class Visitor> void walk(int rootFd, Visitor &visitor, QByteArray *path = nullptr)
{
    struct Frame
    {
        DIR *dir;
        qsizetype pathLength;
    };
    if (rootFd < 0)
        return;
    DIR *rootDir = fdopendir(rootFd);
    if (!rootDir) {
        ::close(rootFd);
        return;
    }
    std::vector<Frame> stack;
    stack.push_back({rootDir, 0});
    if (path)
        path->clear();
    struct stat st;
    while (!stack.empty()) {
        Frame &top = stack.back();
        const int depth = int(stack.size());
        const dirent *d = readdir(top.dir);
        if (!d) {
            closedir(top.dir);
            const qsizetype length = top.pathLength;
            stack.pop_back();
            if (path)
                path->truncate(length);
            if (!stack.empty())
                visitor.leave(depth - 1);
            continue;
        }
        const char *name = d->d_name;
        if (Platform::isDots(name))
            continue;
        if (visitor.stop())
            break;
        const int dirFd = dirfd(top.dir);
        unsigned char type = d->d_type;
        const struct stat *stp = nullptr;
        if (type == DT_UNKNOWN || visitor.wantsStat(type)) {
            if (fstatat(dirFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
                continue; // vanished or unreadable: contributes nothing
            type = typeOf(st);
            stp = visitor.wantsStat(type) ? &st : nullptr;
        }
        const Entry entry{dirFd, name, strlen(name), depth, type, stp};
        if (type != DT_DIR) {
            visitor.file(entry);
            continue;
        }
        if (!visitor.enter(entry) || depth >= kMaxDepth)
            continue;
        const int childFd = openFolder(dirFd, name);
        DIR *child = childFd >= 0 ? fdopendir(childFd) : nullptr;
        if (!child) {
            if (childFd >= 0)
                ::close(childFd);
            continue;
        }
        qsizetype parentLength = 0;
        if (path) {
            parentLength = path->size();
            if (!path->isEmpty())
                path->append('/');
            path->append(name, qsizetype(entry.nameLength));
        }
        stack.push_back({child, parentLength});
    }
    for (auto it = stack.rbegin(); it != stack.rend(); ++it)
        closedir(it->dir);
}

} // namespace DiskWalker
