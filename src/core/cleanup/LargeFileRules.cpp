#include "core/cleanup/LargeFileWalk.h"

#include "core/cleanup/SafetyGuard.h"
#include "core/disk/DiskWalker.h"
#include "core/util/MainThread.h"
#include "core/util/Utf8.h"
#include "platform/Packages.h"

#include <QString>
#include <algorithm>
#include <array>
#include <cstring>

namespace LargeFileWalk {
namespace {

constexpr qint64 kProgressStep = 2000;

constexpr std::array<const char *, 5> kSkippedAtTop{"Library", ".Trash", ".git", "node_modules",
                                                    ".build"};

bool isSkippedAtTop(const char *name)
{
    return std::any_of(kSkippedAtTop.begin(), kSkippedAtTop.end(),
                       [&](const char *skip) { return std::strcmp(name, skip) == 0; });
}

bool hasProtectedExtension(const char *name)
{
    const char *dot = std::strrchr(name, '.');
    return dot != nullptr && SafetyGuard::isProtectedExtension(QString::fromUtf8(dot + 1));
}

struct Visitor
{
    qint64 minBytes;
    const QByteArray *folder; // the walker's current folder, relative to the root
    VisitTally tally;
    std::vector<Candidate> found;

    bool wantsStat(unsigned char type) const { return type == DT_REG; }
    bool stop() const { return false; }
    void leave(int) {}

    bool enter(const DiskWalker::Entry &entry)
    {
        if (!isVisited(entry.name))
            return false;
        tally.tick();
        return entersFolder(entry.dirFd, entry.name, entry.nameLength, entry.depth);
    }

    void file(const DiskWalker::Entry &entry)
    {
        if (!isVisited(entry.name))
            return;
        tally.tick();
        if (entry.st && entry.type == DT_REG &&
            isCandidate(entry.name, entry.nameLength, entry.depth, *entry.st, minBytes))
            found.push_back({*folder, QByteArray(entry.name, qsizetype(entry.nameLength)),
                             qint64(entry.st->st_blocks) * 512, qint64(entry.st->st_mtime)});
    }
};

} // namespace

void VisitCount::add(qint64 visited)
{
    std::lock_guard lock(m_mutex);
    // Posting under the lock keeps the reports in order across threads.
    for (qint64 next = (m_total / kProgressStep + 1) * kProgressStep; next <= m_total + visited;
         next += kProgressStep) {
        if (m_progress)
            MainThread::post([progress = m_progress, next] { progress(next); });
    }
    m_total += visited;
}

bool entersFolder(int dirFd, const char *name, size_t length, int depth)
{
    if (depth == 1 && isSkippedAtTop(name))
        return false;
    if (Platform::isPackage(dirFd, name))
        return false;
    // A name that is not UTF-8 could not be shown or moved back to the same file.
    return Utf8::isValid(name, length);
}

bool isCandidate(const char *name, size_t length, int depth, const struct stat &st, qint64 minBytes)
{
    if (depth == 1 && isSkippedAtTop(name))
        return false;
    if (qint64(st.st_blocks) * 512 < minBytes || hasProtectedExtension(name))
        return false;
    return Utf8::isValid(name, length);
}

std::vector<Candidate> sequential(int rootFd, qint64 minBytes, VisitCount &count)
{
    QByteArray folder;
    std::vector<Candidate> found;
    {
        Visitor visitor{minBytes, &folder, VisitTally(count), {}};
        DiskWalker::walk(rootFd, visitor, &folder);
        found = std::move(visitor.found);
    }
    return found;
}

} // namespace LargeFileWalk
