#pragma once

#include <QThread>
#include <algorithm>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

// The threads that share out the folders of one walk. A thread that meets a subfolder
// offers it; when the queue is full it walks the folder itself, so open folders stay
// bounded by threads × depth plus the queue. `Folder` is whatever a walk carries down
// (an open descriptor at least); every folder offered is walked before run() returns.
// Two to four: past that the walks only wait on the disk and on each other.
inline int defaultWalkThreads()
{
    return std::clamp(QThread::idealThreadCount(), 2, 4);
}

template <class Folder> class FolderPool
{
public:
    explicit FolderPool(int threads) : m_helpersWanted(std::max(threads, 1) - 1) {}

    // Walks `root` on this thread and every offered folder on up to `threads` threads.
    // `makeWalker()` runs once on each thread and gives a callable taking `Folder &&`;
    // the walker is destroyed on its own thread once no folder is left, which is where
    // it hands its results over.
    template <class MakeWalker> void run(Folder root, MakeWalker makeWalker)
    {
        m_queue.push_back(std::move(root));
        m_work = [this, &makeWalker] { work(makeWalker); };
        work(makeWalker);
        // Helpers are only started under the lock by a busy thread, so none can start now.
        for (std::thread &helper : m_helpers)
            helper.join();
    }

    // Hands `folder` to another thread; false (and `folder` untouched) when the queue is
    // full and the caller should walk it at once.
    bool offer(Folder &folder)
    {
        std::unique_lock lock(m_mutex);
        if (m_queue.size() >= kQueueLimit)
            return false;
        m_queue.push_back(std::move(folder));
        // Helpers start with the first offered folder: most walks are small, and threads
        // for a folder without subfolders would cost more than the walk.
        while (int(m_helpers.size()) < m_helpersWanted)
            m_helpers.emplace_back(m_work);
        lock.unlock();
        m_wake.notify_one();
        return true;
    }

private:
    static constexpr size_t kQueueLimit = 64;

    template <class MakeWalker> void work(MakeWalker &makeWalker)
    {
        auto walker = makeWalker();
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_wake.wait(lock, [&] { return !m_queue.empty() || m_busy == 0; });
            if (m_queue.empty())
                break; // nothing queued and nobody busy who could queue more
            Folder folder = std::move(m_queue.front());
            m_queue.pop_front();
            ++m_busy;
            lock.unlock();
            walker(std::move(folder));
            lock.lock();
            --m_busy;
            if (m_busy == 0 && m_queue.empty())
                m_wake.notify_all();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Folder> m_queue;
    int m_busy = 0;
    int m_helpersWanted;
    std::function<void()> m_work;
    std::vector<std::thread> m_helpers;
};
