#include "platform/FileTimes.h"

#include <QFile>
#include <sys/stat.h>

namespace Platform {

std::optional<QDateTime> accessTime(const QString &path)
{
    struct stat st = {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return std::nullopt;
#if defined(__APPLE__)
    const timespec &at = st.st_atimespec;
#else
    const timespec &at = st.st_atim;
#endif
    return QDateTime::fromMSecsSinceEpoch(qint64(at.tv_sec) * 1000 + at.tv_nsec / 1000000, Qt::UTC);
}

} // namespace Platform
