#pragma once

#include <QByteArray>
#include <QHashFunctions>
#include <QtGlobal>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <pthread.h>
#include <unordered_set>
#include <utility>

namespace Platform {

// Work on many items in two stages: stage(i) runs on a second thread, at most `ahead` items
// before land(i, staged) takes them in order on the caller's thread. Both stages must be
// safe to run at the same time on different items. With fewer than two items, or when no
// thread can be started, the caller's thread does both in turn.
template <class Staged>
void pipeline(qsizetype count, qsizetype ahead, const std::function<Staged(qsizetype)> &stage,
              const std::function<void(qsizetype, Staged)> &land)
{
    // The stager sleeps when it is `ahead` items in front and wakes at half that, so that a
    // faster stage is not woken for every item the other one takes.
    struct Queue
    {
        const std::function<Staged(qsizetype)> &stage;
        qsizetype count;
        qsizetype ahead;
        std::mutex mutex;
        std::condition_variable space, items;
        std::deque<Staged> ready;

        static void *run(void *self)
        {
            auto &queue = *static_cast<Queue *>(self);
            for (qsizetype i = 0; i < queue.count; ++i) {
                {
                    std::unique_lock lock(queue.mutex);
                    if (qsizetype(queue.ready.size()) >= queue.ahead)
                        queue.space.wait(
                            lock, [&] { return qsizetype(queue.ready.size()) <= queue.ahead / 2; });
                }
                Staged staged = queue.stage(i);
                const std::lock_guard lock(queue.mutex);
                queue.ready.push_back(std::move(staged));
                if (queue.ready.size() == 1)
                    queue.items.notify_one();
            }
            return nullptr;
        }

        Staged next()
        {
            std::unique_lock lock(mutex);
            items.wait(lock, [&] { return !ready.empty(); });
            Staged front = std::move(ready.front());
            ready.pop_front();
            if (qsizetype(ready.size()) == ahead / 2)
                space.notify_one();
            return front;
        }
    };

    Queue queue{stage, count, qMax<qsizetype>(ahead, 1), {}, {}, {}, {}};
    pthread_t stager;
    if (count < 2 || ::pthread_create(&stager, nullptr, &Queue::run, &queue) != 0) {
        for (qsizetype i = 0; i < count; ++i)
            land(i, stage(i));
        return;
    }
    for (qsizetype i = 0; i < count; ++i)
        land(i, queue.next());
    ::pthread_join(stager, nullptr);
}

// The paths of a batch's earlier items, for the stager to tell which item lies inside one
// of them and so must wait for its turn rather than be worked on ahead. Kept as hashes: a
// collision only makes an item wait, which is always safe. Paths are standardized.
class EarlierPaths
{
public:
    bool holdOneOf(const QByteArray &path) const
    {
        for (qsizetype slash = path.lastIndexOf('/'); slash > 0;
             slash = path.lastIndexOf('/', slash - 1)) {
            if (m_hashes.count(qHash(QByteArrayView(path.constData(), slash))) != 0)
                return true;
        }
        return false;
    }
    void add(const QByteArray &path) { m_hashes.insert(qHash(path)); }

private:
    std::unordered_set<size_t> m_hashes;
};

} // namespace Platform
