#include "SingleInstance.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QThread>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// A request is one short line; anything longer is not from us.
constexpr qint64 kMaxRequest = 4096;
constexpr int kForwardMs = 1500;

} // namespace

SingleInstance::SingleInstance(std::function<void(const QString &)> onRequest, QObject *parent)
    : QObject(parent), m_onRequest(std::move(onRequest))
{}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::socketPath()
{
    QString dir = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (dir.isEmpty() || !QFileInfo(dir).isDir())
        dir = QDir::tempPath();
    return dir + u"/quorvel-"_s + QString::number(::getuid()) + u".socket"_s;
}

bool SingleInstance::claim()
{
    const QString path = socketPath();
    m_lock = std::make_unique<QLockFile>(path + u".lock"_s);
    // The lock is held for the whole run, so age must never make it stale; a lock whose
    // process is gone is still taken over.
    m_lock->setStaleLockTime(0);
    if (!m_lock->tryLock(0)) {
        m_lock.reset();
        return false;
    }
    QLocalServer::removeServer(path); // left behind by a run that ended without release()
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::accept);
    // Failing to listen still leaves us the instance; relaunches then just do nothing.
    m_server->listen(path);
    return true;
}

bool SingleInstance::forward(const QString &request)
{
    const QDeadlineTimer deadline(kForwardMs);
    QLocalSocket socket;
    // The running instance may hold the lock a moment before it listens.
    for (;;) {
        socket.connectToServer(socketPath());
        if (socket.waitForConnected(int(std::max<qint64>(1, deadline.remainingTime()))))
            break;
        if (deadline.hasExpired())
            return false;
        QThread::msleep(50);
    }
    socket.write(request.toUtf8() + '\n');
    if (!socket.waitForBytesWritten(int(std::max<qint64>(1, deadline.remainingTime()))))
        return false;
    // Waiting for the answer means the request was read before this process goes away.
    while (!socket.canReadLine()) {
        if (deadline.hasExpired() ||
            !socket.waitForReadyRead(int(std::max<qint64>(1, deadline.remainingTime()))))
            return false;
    }
    return socket.readLine().startsWith("ok");
}

void SingleInstance::release()
{
    if (m_server)
        m_server->close();
    if (m_lock)
        m_lock->unlock();
}

void SingleInstance::accept()
{
    while (QLocalSocket *socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        auto read = [this, socket] {
            while (socket->canReadLine()) {
                const QString request = QString::fromUtf8(socket->readLine()).trimmed();
                socket->write("ok\n");
                m_onRequest(request);
            }
            if (socket->bytesAvailable() > kMaxRequest)
                socket->abort();
        };
        connect(socket, &QLocalSocket::readyRead, this, read);
        read(); // what arrived before the connection was hooked up
    }
}
