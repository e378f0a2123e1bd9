#pragma once

#include <QElapsedTimer>
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
    QElapsedTimer clock;
    clock.start();
    while (!until()) {
        if (clock.elapsed() > ms)
            return false;
        QThread::msleep(50);
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
        m_server.setProcessChannelMode(QProcess::SeparateChannels);
        // -noreset: a server reset after the last client leaves would refuse the next
        // launch for a moment.
        m_server.start(binary(), {u"-displayfd"_s, u"1"_s, u"-nolisten"_s, u"tcp"_s, u"-noreset"_s,
                                  u"-screen"_s, u"0"_s, u"1280x800x24"_s});
        if (!m_server.waitForStarted(5000))
            return false;
        QElapsedTimer clock;
        clock.start();
        while (!m_server.canReadLine() && m_server.state() == QProcess::Running &&
               clock.elapsed() < 10'000)
            m_server.waitForReadyRead(100);
        const QByteArray line = m_server.readLine().trimmed();
        bool ok = false;
        const int number = line.toInt(&ok);
        if (ok)
            m_display = u':' + QString::number(number);
        return ok;
    }
    QString display() const { return m_display; }
    ~Xvfb()
    {
        if (m_server.state() == QProcess::NotRunning)
            return;
        m_server.terminate();
        if (!m_server.waitForFinished(3000))
            m_server.kill();
        m_server.waitForFinished(3000);
    }

private:
    QProcess m_server;
    QString m_display;
};

} // namespace AppHarness
