#pragma once

#include <QDeadlineTimer>
#include <QProcess>
#include <QString>
#include <QThread>

// A private X server for the window and input tests, and a poll helper for waiting on
// other processes.
namespace AppHarness {

using namespace Qt::StringLiterals;

// `until` is polled every 50 ms for at most `ms`.
template <class F> bool waitFor(F until, int ms)
{
    for (const QDeadlineTimer deadline(ms); !until(); QThread::msleep(50)) {
        if (deadline.hasExpired())
            return false;
    }
    return true;
}

// An Xvfb of our own on the first free display; it reports the number it took.
class Xvfb
{
public:
    static QString binary() { return u"/usr/bin/Xvfb"_s; }

    bool start()
    {
        // -noreset: a server reset after the last client leaves would refuse the next
        // launch for a moment.
        m_server.start(binary(), {u"-displayfd"_s, u"1"_s, u"-nolisten"_s, u"tcp"_s, u"-noreset"_s,
                                  u"-screen"_s, u"0"_s, u"1280x800x24"_s});
        const QDeadlineTimer deadline(10'000);
        while (!m_server.canReadLine() && m_server.state() != QProcess::NotRunning &&
               !deadline.hasExpired())
            m_server.waitForReadyRead(100);
        bool ok = false;
        const int number = m_server.readLine().trimmed().toInt(&ok);
        m_display = ok ? u':' + QString::number(number) : QString();
        return ok;
    }
    QString display() const { return m_display; }
    // Asked to end first; QProcess kills whatever still runs after that.
    ~Xvfb()
    {
        m_server.terminate();
        m_server.waitForFinished(3000);
    }

private:
    QProcess m_server;
    QString m_display;
};

} // namespace AppHarness
