#include "SingleInstance.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QLocalServer>
#include <QLocalSocket>
#include <QThread>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// A request is one short line; anything longer is not from us.
constexpr qint64 kMaxRequest = 4096;
constexpr int kForwardMs = 1500;

// Opened without following a final link, so what is checked is the folder itself. With
// `narrow`, a folder of ours loses its group and other permissions and must then have
// none; without, nobody else may write to it.
bool isPrivateFolder(const QString &path, bool narrow)
{
    const int fd = ::open(QFile::encodeName(QDir::cleanPath(path)).constData(),
                          O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat st;
    bool ok = ::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::geteuid();
    if (ok && narrow && (st.st_mode & 077) != 0)
        ok = ::fchmod(fd, 0700) == 0 && ::fstat(fd, &st) == 0;
    ok = ok && (st.st_mode & (narrow ? 077 : 022)) == 0;
    ::close(fd);
    return ok;
}

bool makeFolder(const QString &path)
{
    return ::mkdir(QFile::encodeName(path).constData(), 0700) == 0 || errno == EEXIST;
}

} // namespace

SingleInstance::SingleInstance(std::function<void(const QString &)> onRequest, QString cacheFolder,
                               QObject *parent)
    : QObject(parent), m_onRequest(std::move(onRequest)), m_cacheFolder(std::move(cacheFolder))
{}

SingleInstance::~SingleInstance() = default;

std::optional<QString> SingleInstance::privateFolder(const QString &runtimeDir,
                                                     const QString &cacheDir)
{
    if (runtimeDir.startsWith(u'/') && isPrivateFolder(runtimeDir, false))
        return QDir::cleanPath(runtimeDir);
    if (!cacheDir.startsWith(u'/'))
        return std::nullopt;
    const QString folder = QDir::cleanPath(cacheDir) + u"/quorvel"_s;
    if (!makeFolder(cacheDir) || !makeFolder(folder) || !isPrivateFolder(folder, true))
        return std::nullopt;
    return folder;
}

std::optional<QString> SingleInstance::socketPath() const
{
    const std::optional<QString> folder =
        privateFolder(qEnvironmentVariable("XDG_RUNTIME_DIR"), m_cacheFolder);
    if (!folder)
        return std::nullopt;
    return *folder + u"/quorvel-"_s + QString::number(::getuid()) + u".socket"_s;
}

bool SingleInstance::claim()
{
    const std::optional<QString> path = socketPath();
    if (!path) {
        qWarning("quorvel: no private folder for the instance lock; running without one");
        return true;
    }
    m_path = *path;
    m_lock = std::make_unique<QLockFile>(m_path + u".lock"_s);
    // The lock is held for the whole run, so age must never make it stale; a lock whose
    // process is gone is still taken over.
    m_lock->setStaleLockTime(0);
    if (!m_lock->tryLock(0)) {
        m_lock.reset();
        return false;
    }
    QLocalServer::removeServer(m_path); // left behind by a run that ended without release()
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::accept);
    // Failing to listen still leaves us the instance; relaunches then just do nothing.
    m_server->listen(m_path);
    return true;
}

bool SingleInstance::forward(const QString &request)
{
    if (m_path.isEmpty())
        return false;
    const QDeadlineTimer deadline(kForwardMs);
    QLocalSocket socket;
    // The running instance may hold the lock a moment before it listens.
    for (;;) {
        socket.connectToServer(m_path);
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
