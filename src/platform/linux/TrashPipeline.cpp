#include "platform/Trash.h"
#include "platform/linux/TrashBatchState.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <pthread.h>
#include <utility>
#include <variant>

// A move is two file-system operations of about the same cost: writing the record (a new
// file in info/) and the rename into files/. They lock different folders, so on a second
// core the records of the next items are written while this one lands.
namespace Platform {
namespace {

using XdgTrash::Staged;

// Enough to ride over an uneven item; few enough that the held folders stay a handful.
constexpr qsizetype stagedAhead = 32;

struct Pipeline
{
    TrashBatch::State &state;
    const QList<TrashRequest> &requests;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::variant<Staged, TrashMove>> ready; // requests in order, staged or failed

    void stageAll()
    {
        for (const TrashRequest &request : requests) {
            std::unique_lock lock(mutex);
            changed.wait(lock, [&] { return ready.size() < stagedAhead; });
            lock.unlock();
            std::unique_lock stateLock(state.mutex);
            std::variant<Staged, TrashMove> staged = state.stage(request.path, request.anchor);
            stateLock.unlock();
            lock.lock();
            ready.push_back(std::move(staged));
            changed.notify_all();
        }
    }

    std::variant<Staged, TrashMove> next()
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return !ready.empty(); });
        std::variant<Staged, TrashMove> front = std::move(ready.front());
        ready.pop_front();
        changed.notify_all();
        return front;
    }
};

void *stageAll(void *pipeline)
{
    static_cast<Pipeline *>(pipeline)->stageAll();
    return nullptr;
}

} // namespace

void TrashBatch::moveAll(const QList<TrashRequest> &requests, const Moved &moved)
{
    Pipeline pipeline{*m_state, requests, {}, {}, {}};
    pthread_t stager;
    if (requests.size() < 2 || ::pthread_create(&stager, nullptr, stageAll, &pipeline) != 0) {
        for (qsizetype i = 0; i < requests.size(); ++i)
            moved(i, move(requests[i].path, requests[i].anchor));
        return;
    }
    for (qsizetype i = 0; i < requests.size(); ++i) {
        std::variant<Staged, TrashMove> staged = pipeline.next();
        if (const TrashMove *failure = std::get_if<TrashMove>(&staged))
            moved(i, *failure);
        else
            moved(i, m_state->finish(std::get<Staged>(std::move(staged))));
    }
    ::pthread_join(stager, nullptr);
}

} // namespace Platform
