#include "core/screenclean/ScreenCleanMode.h"

#include "core/words/ScreenWords.h"

#include <QPointer>
#include <QTimer>
#include <chrono>
#include <utility>

using namespace Qt::StringLiterals;

ScreenCleanMode::Services ScreenCleanMode::Services::real()
{
    Services s;
    s.lock = Platform::InputLock::create();
    s.now = [] {
        using Seconds = std::chrono::duration<double>;
        return Seconds(std::chrono::steady_clock::now().time_since_epoch()).count();
    };
    s.schedule = [](double seconds, std::function<void()> job) -> std::function<void()> {
        // The timer owns itself: it goes after firing or when cancelled, whichever is first.
        // deleteLater, because the cancel may come from inside the job it is running.
        auto *timer = new QTimer;
        timer->setSingleShot(true);
        QObject::connect(timer, &QTimer::timeout, timer, [timer, job = std::move(job)] {
            timer->deleteLater();
            job();
        });
        timer->start(std::chrono::milliseconds(qint64(seconds * 1000)));
        return [guard = QPointer<QTimer>(timer)] {
            if (guard) {
                guard->stop();
                guard->deleteLater();
            }
        };
    };
    return s;
}

ScreenCleanMode &ScreenCleanMode::shared()
{
    static auto *mode = new ScreenCleanMode; // never destroyed; the app stops it at quit
    return *mode;
}

ScreenCleanMode::ScreenCleanMode(Services services, QObject *parent)
    : QObject(parent), m_services(std::move(services))
{}

ScreenCleanMode::~ScreenCleanMode()
{
    stop();
}

void ScreenCleanMode::setOverlayHost(OverlayHost *host)
{
    m_host = host;
}

bool ScreenCleanMode::trusted() const
{
    return m_services.lock->trusted();
}

void ScreenCleanMode::requestPermission()
{
    m_services.lock->requestTrust();
}

void ScreenCleanMode::start()
{
    if (m_active)
        return;
    Platform::InputLock &lock = *m_services.lock;
    if (!lock.trusted()) {
        lock.requestTrust();
        m_lastError = Words::accessibilityNeeded();
        Q_EMIT changed();
        return;
    }
    // Queued even though the lock calls on the main thread: a third press stops the mode,
    // and the lock must not be released from inside its own event handling.
    const bool installed = lock.install([this] {
        QMetaObject::invokeMethod(this, &ScreenCleanMode::escPressed, Qt::QueuedConnection);
    });
    if (!installed) {
        m_lastError = Words::lockFailed();
        Q_EMIT changed();
        return;
    }
    if (m_host)
        m_host->showWindows(*this);
    lock.hidePointer();
    m_escTimes.clear();
    m_escCount = 0;
    m_lastError.reset();
    m_active = true;
    // Held weakly: the job may outlive the controller it was made for.
    m_cancelAutoExit = m_services.schedule(kAutoExitSeconds, [self = QPointer(this)] {
        if (self)
            self->stop();
    });
    Q_EMIT changed();
}

void ScreenCleanMode::stop()
{
    if (!m_active)
        return;
    m_services.lock->release();
    if (m_host)
        m_host->closeWindows();
    m_services.lock->showPointer();
    if (const std::function<void()> cancel = std::exchange(m_cancelAutoExit, nullptr))
        cancel();
    m_active = false;
    m_escCount = 0;
    Q_EMIT changed();
}

void ScreenCleanMode::openAccessibilitySettings()
{
    Platform::openAccessibilitySettings();
}

QString ScreenCleanMode::exitHint() const
{
    return Words::exitHint(m_escCount);
}

void ScreenCleanMode::escPressed()
{
    // A press queued just before a stop arrives after it and counts for nothing.
    if (!m_active)
        return;
    const double now = m_services.now();
    m_escTimes.removeIf([now](double t) { return now - t >= kEscInterval; });
    m_escTimes.append(now);
    m_escCount = int(m_escTimes.size());
    if (m_escCount >= kEscPresses)
        stop();
    else
        Q_EMIT changed();
}
