#include "core/disk/ParallelSize.h"

#include "core/disk/DiskWalker.h"
#include "platform/DirReader.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace ParallelSize {
namespace {

// Folders waiting for a thread. Kept short: once it is full, a thread walks what it finds
// itself, so open folders stay bounded by threads × depth plus this many.
constexpr size_t kQueueLimit = 64;

struct Shared
{
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<int> queue;
    int busy = 0;
    std::atomic<long long> total{0};
    // Helpers start with the first queued folder: most measured items are small, and
    // starting threads for a folder without subfolders would cost more than the walk.
    int helpersWanted = 0;
    std::vector<std::thread> helpers;
};

void worker(Shared &shared);

// One read buffer per level of a thread's own recursion, reused across folders.
using Buffers = std::vector<std::unique_ptr<char[]>>;

void walkFolder(Shared &shared, int fd, int depth, long long &sum, Buffers &buffers)
{
    if (buffers.size() < size_t(depth))
        buffers.push_back(std::make_unique<char[]>(Platform::DirReader::kBufferSize));
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
            const int child = DiskWalker::openFolder(fd, name);
            if (child < 0)
                continue;
            {
                std::unique_lock lock(shared.mutex);
                if (shared.queue.size() < kQueueLimit) {
                    shared.queue.push_back(child);
                    while (int(shared.helpers.size()) < shared.helpersWanted)
                        shared.helpers.emplace_back([&shared] { worker(shared); });
                    lock.unlock();
                    shared.wake.notify_one();
                    continue;
                }
            }
            walkFolder(shared, child, depth + 1, sum, buffers);
        }
    }
    ::close(fd);
}

void worker(Shared &shared)
{
    long long sum = 0;
    Buffers buffers;
    std::unique_lock lock(shared.mutex);
    for (;;) {
        shared.wake.wait(lock, [&] { return !shared.queue.empty() || shared.busy == 0; });
        if (shared.queue.empty())
            break; // nothing queued and nobody busy who could queue more
        const int fd = shared.queue.front();
        shared.queue.pop_front();
        ++shared.busy;
        lock.unlock();
        walkFolder(shared, fd, 1, sum, buffers);
        lock.lock();
        --shared.busy;
        if (shared.busy == 0 && shared.queue.empty())
            shared.wake.notify_all();
    }
    shared.total += sum;
}

} // namespace

long long sum(int rootFd, int threads)
{
    if (rootFd < 0)
        return 0;
    Shared shared;
    shared.queue.push_back(rootFd);
    shared.helpersWanted = threads - 1;
    worker(shared);
    // Helpers are only started under the lock by a busy worker, so none can start now.
    for (auto &helper : shared.helpers)
        helper.join();
    return shared.total.load();
}

} // namespace ParallelSize
