#pragma once

#include <QByteArray>
#include <functional>
#include <mutex>
#include <sys/stat.h>
#include <vector>

// The large-file scan's rules and its two walks: depth-first on one thread, or shared out
// over the folder pool. Both apply the same rules and give the same candidates in the same
// order; the one-thread walk is the plain reference the other is held to.
namespace LargeFileWalk {

// A file that passed every rule about the entry itself; the rule on the whole path and the
// words come later, on the caller's thread.
struct Candidate
{
    QByteArray folder; // relative to the root, "" for the root itself
    QByteArray name;
    qint64 bytes = 0;
    qint64 modified = 0; // seconds since the epoch
};

// Visited entries of one scan. Every 2,000th count goes to `progress` on the main thread,
// in order, whichever thread reaches it.
class VisitCount
{
public:
    explicit VisitCount(const std::function<void(qint64)> &progress) : m_progress(progress) {}
    void add(qint64 visited);

private:
    const std::function<void(qint64)> &m_progress;
    std::mutex m_mutex;
    qint64 m_total = 0;
};

// One thread's share of the count, handed over in batches so threads rarely meet on the
// lock; whatever is left goes over when the tally ends.
class VisitTally
{
public:
    explicit VisitTally(VisitCount &count) : m_count(count) {}
    ~VisitTally() { m_count.add(m_pending); }
    VisitTally(const VisitTally &) = delete;
    VisitTally &operator=(const VisitTally &) = delete;
    void tick()
    {
        if (++m_pending == kBatch) {
            m_count.add(m_pending);
            m_pending = 0;
        }
    }

private:
    static constexpr qint64 kBatch = 256;
    VisitCount &m_count;
    qint64 m_pending = 0;
};

// Hidden entries are never visited, so never counted.
inline bool isVisited(const char *name)
{
    return name[0] != '.';
}

// Whether the walk descends into the visible folder `name` of `dirFd`, whose entries lie
// one level below `depth`.
bool entersFolder(int dirFd, const char *name, size_t length, int depth);

// Whether the visible regular file `name` at `depth` is listed, as far as the entry
// itself tells.
bool isCandidate(const char *name, size_t length, int depth, const struct stat &st,
                 qint64 minBytes);

// Both take ownership of `rootFd` (-1 gives nothing).
std::vector<Candidate> sequential(int rootFd, qint64 minBytes, VisitCount &count);
std::vector<Candidate> parallel(int rootFd, qint64 minBytes, VisitCount &count, int threads);

} // namespace LargeFileWalk
