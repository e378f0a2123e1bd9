#pragma once

#include "platform/InputLock.h"

#include <QList>
#include <QObject>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

// Screen-cleaning mode: black windows on every screen, a hidden pointer and locked input
// until Esc is pressed three times within two seconds or ten minutes pass. One shared
// instance; main thread only. The app stops it before quitting, so the lock can never
// outlive the process.
class ScreenCleanMode final : public QObject
{
    Q_OBJECT

public:
    // The black windows, which only the GUI can make; core knows them through this.
    class OverlayHost
    {
    public:
        virtual ~OverlayHost() = default;
        // One window per screen attached now, each showing the overlay for `mode`.
        virtual void showWindows(ScreenCleanMode &mode) = 0;
        // Takes every window of the last showWindows off the screen.
        virtual void closeWindows() = 0;
    };

    // What the mode needs from the outside, replaceable for tests.
    struct Services
    {
        std::unique_ptr<Platform::InputLock> lock;
        std::function<double()> now; // seconds on a monotonic clock
        // Runs `job` once on the main thread after `seconds`; calling the returned
        // function before then cancels it.
        std::function<std::function<void()>(double seconds, std::function<void()> job)> schedule;

        static Services real();
    };

    static constexpr double kEscInterval = 2.0; // seconds
    static constexpr int kEscPresses = 3;
    static constexpr double kAutoExitSeconds = 600;

    static ScreenCleanMode &shared();
    explicit ScreenCleanMode(Services services = Services::real(), QObject *parent = nullptr);
    ~ScreenCleanMode() override; // stops first

    // Not owned; set once by the GUI. Without one the mode still locks input.
    void setOverlayHost(OverlayHost *host);

    // --- published fields
    bool active() const { return m_active; }
    int escCount() const { return m_escCount; }
    const std::optional<QString> &lastError() const { return m_lastError; }

    // Asks the system each time (the page re-reads it whenever it redraws).
    bool trusted() const;
    // The system's permission prompt; changes nothing else.
    void requestPermission();

    // Turns the mode on, or records in lastError why it could not be.
    void start();
    // Turns it off; safe at any time, also when inactive.
    void stop();
    static void openAccessibilitySettings();

    // The hint's count text, e.g. "Press Esc 3 times quickly to exit  (2/3)".
    QString exitHint() const;

Q_SIGNALS:
    void changed();

private:
    void escPressed();

    Services m_services;
    OverlayHost *m_host = nullptr;
    bool m_active = false;
    int m_escCount = 0;
    std::optional<QString> m_lastError;
    QList<double> m_escTimes;
    std::function<void()> m_cancelAutoExit;
};
