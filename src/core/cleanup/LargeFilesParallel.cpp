#include "core/cleanup/LargeFileWalk.h"

#include "core/disk/DiskWalker.h"
#include "core/disk/FolderPool.h"
#include "platform/DirReader.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace LargeFileWalk {
namespace {

// A folder on its way to a thread. `place` is the position of each folder on the way
// down in its parent's listing: comparing places orders entries as a depth-first walk
// would meet them, whichever thread met them first.
struct Folder
{
    int fd = -1;
    int depth = 1; // of the folder's entries
    QByteArray path;
    std::vector<quint32> place;
};

struct Placed
{
    std::vector<quint32> place;
    Candidate candidate;
};

using Pool = FolderPool<Folder>;

struct Results
{
    qint64 minBytes;
    std::mutex mutex;
    std::vector<Placed> found;
};

struct Walker
{
    Pool &pool;
    Results &results;
    VisitTally tally;
    std::vector<Placed> found;
    // One read buffer per level of this thread's own recursion, reused across folders.
    // Left unfilled: zeroing them would make a deep chain cost 32 KiB of memory a level.
    std::vector<std::unique_ptr<char[]>> buffers;

    Walker(Pool &p, Results &r, VisitCount &count) : pool(p), results(r), tally(count) {}
    Walker(const Walker &) = delete;
    ~Walker()
    {
        std::lock_guard lock(results.mutex);
        std::move(found.begin(), found.end(), std::back_inserter(results.found));
    }

    void operator()(Folder &&folder) { walk(folder, 0); }

    void walk(Folder &folder, size_t level)
    {
        if (buffers.size() <= level)
            buffers.push_back(
                std::make_unique_for_overwrite<char[]>(Platform::DirReader::kBufferSize));
        const int fd = folder.fd;
        {
            Platform::DirReader reader(fd, buffers[level].get());
            struct stat st;
            const char *name = nullptr;
            unsigned char type = DT_UNKNOWN;
            quint32 index = 0;
            while (reader.next(name, type)) {
                if (Platform::isDots(name))
                    continue;
                const quint32 at = index++;
                // Hidden entries are dropped before their stat: nothing of them is used.
                if (!isVisited(name))
                    continue;
                if (type == DT_REG || type == DT_UNKNOWN) {
                    if (fstatat(fd, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
                        continue; // vanished or unreadable: not visited
                    type = DiskWalker::typeOf(st);
                }
                tally.tick();
                const size_t length = std::strlen(name);
                if (type == DT_REG) {
                    if (isCandidate(name, length, folder.depth, st, results.minBytes))
                        keep(folder, at, name, length, st);
                    continue;
                }
                if (type != DT_DIR || folder.depth >= DiskWalker::kMaxDepth ||
                    !entersFolder(fd, name, length, folder.depth))
                    continue;
                Folder child{DiskWalker::openFolder(fd, name), folder.depth + 1, folder.path,
                             folder.place};
                if (child.fd < 0)
                    continue;
                if (!child.path.isEmpty())
                    child.path.append('/');
                child.path.append(name, qsizetype(length));
                child.place.push_back(at);
                if (!pool.offer(child))
                    walk(child, level + 1);
            }
        }
        ::close(fd);
    }

    void keep(const Folder &folder, quint32 at, const char *name, size_t length,
              const struct stat &st)
    {
        std::vector<quint32> place = folder.place;
        place.push_back(at);
        found.push_back({std::move(place),
                         {folder.path, QByteArray(name, qsizetype(length)),
                          qint64(st.st_blocks) * 512, qint64(st.st_mtime)}});
    }
};

} // namespace

std::vector<Candidate> parallel(int rootFd, qint64 minBytes, VisitCount &count, int threads)
{
    if (rootFd < 0)
        return {};
    Results results{minBytes, {}, {}};
    Pool pool(threads);
    pool.run(Folder{rootFd, 1, {}, {}}, [&] { return Walker(pool, results, count); });
    std::sort(results.found.begin(), results.found.end(),
              [](const Placed &a, const Placed &b) { return a.place < b.place; });
    std::vector<Candidate> found;
    found.reserve(results.found.size());
    for (Placed &placed : results.found)
        found.push_back(std::move(placed.candidate));
    return found;
}

} // namespace LargeFileWalk
