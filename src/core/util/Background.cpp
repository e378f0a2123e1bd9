#include "core/util/Background.h"

#include <QThread>
#include <QThreadPool>
#include <algorithm>

namespace Background {
namespace {

// Heap pools that are never destroyed: destroying a QThreadPool waits for its work,
// and quitting must not.
QThreadPool *makePool(int threads)
{
    auto *pool = new QThreadPool;
    pool->setMaxThreadCount(threads);
    pool->setExpiryTimeout(30'000);
    return pool;
}

QThreadPool *workPool()
{
    static QThreadPool *pool = makePool(std::max(2, QThread::idealThreadCount()));
    return pool;
}

QThreadPool *processPool()
{
    static QThreadPool *pool = makePool(4);
    return pool;
}

} // namespace

void run(std::function<void()> job)
{
    workPool()->start(std::move(job));
}

void runProcess(std::function<void()> job)
{
    processPool()->start(std::move(job));
}

} // namespace Background
