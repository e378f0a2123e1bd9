#include "core/disk/ParallelSize.h"

#include "core/disk/DiskWalker.h"
#include "core/disk/FolderPool.h"
#include "platform/DirReader.h"

#include <atomic>
#include <memory>
#include <vector>

namespace ParallelSize {
namespace {

using Pool = FolderPool<int>;

struct Walker
{
    Pool &pool;
    std::atomic<long long> &total;
    long long sum = 0;
    // One read buffer per level of this thread's own recursion, reused across folders.
    // Left unfilled: zeroing them would make a deep chain cost 32 KiB of memory a level.
    std::vector<std::unique_ptr<char[]>> buffers;

    Walker(Pool &p, std::atomic<long long> &t) : pool(p), total(t) {}
    Walker(const Walker &) = delete;
    ~Walker() { total += sum; }

    void operator()(int fd) { walk(fd, 1); }

    void walk(int fd, int depth)
    {
        if (buffers.size() < size_t(depth))
            buffers.push_back(
                std::make_unique_for_overwrite<char[]>(Platform::DirReader::kBufferSize));
        {
            Platform::DirReader reader(fd, buffers[size_t(depth) - 1].get());
            struct stat st;
            const char *name = nullptr;
            unsigned char type = DT_UNKNOWN;
            while (reader.next(name, type)) {
                if (Platform::isDots(name))
                    continue;
                if (type == DT_REG || type == DT_UNKNOWN) {
                    if (fstatat(fd, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
                        continue;
                    type = DiskWalker::typeOf(st);
                    if (type == DT_REG)
                        sum += (long long)st.st_blocks * 512;
                }
                if (type != DT_DIR || depth >= DiskWalker::kMaxDepth)
                    continue;
                int child = DiskWalker::openFolder(fd, name);
                if (child >= 0 && !pool.offer(child))
                    walk(child, depth + 1);
            }
        }
        ::close(fd);
    }
};

} // namespace

long long sum(int rootFd, int threads)
{
    if (rootFd < 0)
        return 0;
    std::atomic<long long> total{0};
    Pool pool(threads);
    pool.run(rootFd, [&] { return Walker(pool, total); });
    return total.load();
}

} // namespace ParallelSize
