#include "core/cleanup/RemovalLog.h"

#include "core/text/PathText.h"

#include <QDateTime>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace RemovalLog {
namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// `name` inside `dirFd` as a real folder, created private when missing and `create`; -1
// with errno.
int folderIn(int dirFd, const char *name, bool create)
{
    const int fd = ::openat(dirFd, name, kFolderFlags);
    if (fd >= 0 || errno != ENOENT || !create)
        return fd;
    if (::mkdirat(dirFd, name, 0700) != 0 && errno != EEXIST)
        return -1;
    return ::openat(dirFd, name, kFolderFlags);
}

// The log's folder: the home folder (which may sit behind a link), then each folder below it
// without following one; the last must be the user's own.
int openFolder(const Locations &where, bool create)
{
    const QString home = where.home();
    const QByteArray below =
        QFile::encodeName(where.removalLogFolder().mid(home.size() + (home == u"/" ? 0 : 1)));
    int fd = ::open(QFile::encodeName(home).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (const QByteArray &name : below.split('/')) {
        if (fd < 0)
            return -1;
        const int next = folderIn(fd, name.constData(), create);
        const int error = errno;
        ::close(fd);
        errno = error;
        fd = next;
    }
    struct stat st = {};
    if (fd >= 0 && (::fstat(fd, &st) != 0 || st.st_uid != ::geteuid())) {
        ::close(fd);
        errno = EPERM;
        return -1;
    }
    return fd;
}

// The log opened for appending, or -1 with errno.
int openLog(const Locations &where)
{
    const QByteArray file = QFile::encodeName(PathText::lastComponent(where.removalLog()));
    const int folder = openFolder(where, true);
    if (folder < 0)
        return -1;
    // O_APPEND makes every write land at the end, so concurrent removals interleave whole
    // lines. O_NONBLOCK keeps a planted pipe from holding the removal up.
    const int fd =
        ::openat(folder, file.constData(),
                 O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    const int openError = errno;
    ::close(folder);
    struct stat st = {};
    if (fd >= 0 && (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))) {
        ::close(fd);
        errno = EINVAL;
        return -1;
    }
    errno = openError;
    return fd;
}

} // namespace

Writer::~Writer()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

std::optional<int> Writer::append(const QStringList &fields)
{
    QString line = QDateTime::currentDateTimeUtc().toString(Qt::ISODate);
    for (const QString &field : fields)
        line += u'\t' + PathText::escaped(field);
    const QByteArray entry = (line + u'\n').toUtf8();

    if (m_fd < 0 && (m_fd = openLog(m_where)) < 0)
        return errno;
    const ssize_t written = ::write(m_fd, entry.constData(), size_t(entry.size()));
    if (written < 0)
        return errno;
    if (written != entry.size())
        return ENOSPC;
    return std::nullopt;
}

std::optional<QByteArray> tail(const Locations &where, qint64 maxBytes)
{
    const int folder = openFolder(where, false);
    if (folder < 0)
        return std::nullopt;
    const QByteArray file = QFile::encodeName(PathText::lastComponent(where.removalLog()));
    const int fd =
        ::openat(folder, file.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    ::close(folder);
    if (fd < 0)
        return std::nullopt;
    std::optional<QByteArray> text;
    struct stat st = {};
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
        const qint64 start = qMax<qint64>(0, st.st_size - maxBytes);
        QByteArray bytes(qsizetype(st.st_size - start), '\0');
        const ssize_t got = ::pread(fd, bytes.data(), size_t(bytes.size()), off_t(start));
        if (got >= 0) {
            bytes.truncate(got);
            // A cut line is no line.
            text = start == 0 ? bytes : bytes.mid(bytes.indexOf('\n') + 1);
        }
    }
    ::close(fd);
    return text;
}

} // namespace RemovalLog
