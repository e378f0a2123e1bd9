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

void TrashBatch::moveAll(const QList<TrashRequest> &requests, const Moved &moved)
{
    using Step = std::variant<XdgTrash::Staged, TrashMove>; // staged, or failed already
    // Enough to ride over an uneven item; few, as each holds a folder open and a process
    // killed meanwhile leaves their records without items.
    constexpr qsizetype stagedAhead = 16;
    pipeline<Step>(
        requests.size(), stagedAhead,
        [&](qsizetype i) {
            const std::lock_guard lock(m_state->mutex);
            return m_state->stage(requests[i].path, requests[i].anchor);
        },
        [&](qsizetype i, Step step) {
            if (const TrashMove *failure = std::get_if<TrashMove>(&step))
                moved(i, *failure);
            else
                moved(i, m_state->finish(std::get<XdgTrash::Staged>(std::move(step))));
        });
}

} // namespace Platform
