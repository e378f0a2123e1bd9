#include "platform/Trash.h"
#include "platform/linux/TrashBatchState.h"
#include "platform/posix/Pipeline.h"

#include <mutex>
#include <utility>
#include <variant>

// A move is two file-system operations of about the same cost: writing the record (a new
// file in info/) and the rename into files/. They lock different folders, so on a second
// core the records of the next items are written while this one lands.
namespace Platform {
namespace {

// An item below an earlier item of the batch: located at its turn, once that one has
// moved, as one move after another would find it (gone with it, most likely). Staged
// ahead, its folder would be held open and the item pulled out of the Trash.
struct Deferred
{
};

} // namespace

void TrashBatch::moveAll(const QList<TrashRequest> &requests, const Moved &moved)
{
    using Step = std::variant<XdgTrash::Staged, TrashMove, Deferred>;
    // Enough to ride over an uneven item; few, as each holds a folder open and a process
    // killed meanwhile leaves their records without items.
    constexpr qsizetype stagedAhead = 16;
    EarlierPaths earlier; // the stager's: every request so far
    pipeline<Step>(
        requests.size(), stagedAhead,
        [&](qsizetype i) -> Step {
            const QByteArray path = XdgTrash::standardized(requests[i].path);
            const bool later = earlier.holdOneOf(path);
            earlier.add(path);
            if (later)
                return Deferred{};
            const std::lock_guard lock(m_state->mutex);
            return std::visit([](auto &&staged) -> Step { return std::move(staged); },
                              m_state->stage(requests[i].path, requests[i].anchor));
        },
        [&](qsizetype i, Step step) {
            if (const TrashMove *failure = std::get_if<TrashMove>(&step))
                moved(i, *failure);
            else if (XdgTrash::Staged *staged = std::get_if<XdgTrash::Staged>(&step))
                moved(i, m_state->finish(std::move(*staged)));
            else
                moved(i, move(requests[i].path, requests[i].anchor));
        });
}

} // namespace Platform
