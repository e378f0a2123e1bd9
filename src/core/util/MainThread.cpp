#include "core/util/MainThread.h"

#include <QCoreApplication>
#include <QMetaObject>

namespace MainThread {

void post(std::function<void()> job)
{
    if (!job)
        return;
    QCoreApplication *app = QCoreApplication::instance();
    if (!app) {
        job();
        return;
    }
    QMetaObject::invokeMethod(app, std::move(job), Qt::QueuedConnection);
}

} // namespace MainThread
