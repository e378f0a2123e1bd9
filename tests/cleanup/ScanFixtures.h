#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QString>
#include <QtTest>
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

// File trees for the scanner tests. Sizes are read back from the file system (blocks ×
// 512), because block rounding differs between file systems.
namespace ScanFixtures {

inline qint64 allocatedAt(const QByteArray &path)
{
    struct stat st;
    return lstat(path.constData(), &st) == 0 ? qint64(st.st_blocks) * 512 : -1;
}

inline qint64 allocated(const QString &path)
{
    return allocatedAt(QFile::encodeName(path));
}

// Real bytes, not a hole, so the allocated size is at least `size`; -1 on failure. Takes
// raw bytes so that names which are not UTF-8 can be written.
inline qint64 writeFileAt(const QByteArray &path, qint64 size)
{
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0)
        return -1;
    const QByteArray chunk(64 * 1024, 'q');
    for (qint64 left = size; left > 0; left -= chunk.size()) {
        const size_t n = size_t(std::min<qint64>(left, chunk.size()));
        if (::write(fd, chunk.constData(), n) != ssize_t(n)) {
            ::close(fd);
            return -1;
        }
    }
    ::fsync(fd);
    ::close(fd);
    return allocatedAt(path);
}

inline qint64 writeFile(const QString &path, qint64 size)
{
    QDir().mkpath(QFileInfo(path).path());
    return writeFileAt(QFile::encodeName(path), size);
}

inline bool makeDir(const QString &path)
{
    return QDir().mkpath(path);
}

inline bool makeLink(const QString &target, const QString &at)
{
    QDir().mkpath(QFileInfo(at).path());
    return ::symlink(QFile::encodeName(target).constData(), QFile::encodeName(at).constData()) == 0;
}

// The names of a folder's entries in the order the file system lists them.
inline QStringList listingOrder(const QString &folder)
{
    QStringList names;
    DIR *dir = opendir(QFile::encodeName(folder).constData());
    if (!dir)
        return names;
    while (const dirent *d = readdir(dir)) {
        if (d->d_name[0] != '.')
            names.append(QFile::decodeName(d->d_name));
    }
    closedir(dir);
    return names;
}

// Empties the temporary home between tests, keeping the folder itself. Works on raw
// names, so entries that are not UTF-8 go too.
inline void clearHome(const QString &home)
{
    const auto removeOne = [](const char *path, const struct stat *, int, struct FTW *ftw) {
        if (ftw->level > 0)
            ::remove(path);
        return 0;
    };
    nftw(QFile::encodeName(home).constData(), removeOne, 32, FTW_DEPTH | FTW_PHYS);
}

} // namespace ScanFixtures
