#include "core/cleanup/RemovalLog.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <fcntl.h>
#include <unistd.h>

namespace RemovalLog {

QString path()
{
    static const QString location =
        QDir::homePath() + QStringLiteral("/Library/Logs/Quorvel/removals.log");
    return location;
}

void append(const QString &line)
{
    const QString file = path();
    QDir().mkpath(file.left(file.lastIndexOf(u'/')));
    const QByteArray entry =
        (QDateTime::currentDateTimeUtc().toString(Qt::ISODate) + u'\t' + line + u'\n').toUtf8();
    // O_APPEND makes every write land at the end, so concurrent removals interleave whole
    // lines; the file is never truncated or replaced, even when it cannot be opened.
    const QByteArray native = QFile::encodeName(file);
    const int fd = ::open(native.constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        return;
    [[maybe_unused]] const ssize_t written = ::write(fd, entry.constData(), size_t(entry.size()));
    ::close(fd);
}

} // namespace RemovalLog
