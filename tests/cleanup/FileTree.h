#pragma once

#include <QtTest>
#include <fcntl.h>
#include <ftw.h>
#include <plist/plist.h>
#include <sys/stat.h>
#include <unistd.h>

// File trees for the clean-up and disk tests. Paths are raw bytes where names need not be
// UTF-8. Sizes are read back (blocks × 512): block rounding differs between file systems.
namespace FileTree {

inline qint64 allocated(const QByteArray &path)
{
    struct stat st;
    return ::lstat(path.constData(), &st) == 0 ? qint64(st.st_blocks) * 512 : -1;
}
inline qint64 allocated(const QString &path)
{
    return allocated(QFile::encodeName(path));
}

inline void makeParents(const QByteArray &path)
{
    for (qsizetype slash = path.indexOf('/', 1); slash > 0; slash = path.indexOf('/', slash + 1))
        ::mkdir(path.left(slash).constData(), 0755);
}

// Real bytes, never a hole; the allocated size, or -1.
inline qint64 write(const QByteArray &path, const QByteArray &bytes)
{
    makeParents(path);
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const bool ok = fd >= 0 && ::write(fd, bytes.constData(), size_t(bytes.size())) == bytes.size();
    if (fd >= 0)
        ::close(fd);
    return ok ? allocated(path) : -1;
}
inline qint64 write(const QString &path, const QByteArray &bytes)
{
    return write(QFile::encodeName(path), bytes);
}
inline qint64 writeFile(const QString &path, qint64 size)
{
    return write(path, QByteArray(size, 'q'));
}

inline bool makeLink(const QString &target, const QString &at)
{
    makeParents(QFile::encodeName(at));
    return ::symlink(QFile::encodeName(target).constData(), QFile::encodeName(at).constData()) == 0;
}

// Everything below `folder`, the folder itself kept; raw names, links not followed.
inline void clear(const QString &folder)
{
    const auto remove = [](const char *path, const struct stat *, int, FTW *at) {
        return at->level > 0 ? ::remove(path) & 0 : 0;
    };
    nftw(QFile::encodeName(folder).constData(), remove, 32, FTW_DEPTH | FTW_PHYS);
}

// An Info.plist's bytes, XML or binary, of string values.
inline QByteArray plist(const QVariantMap &values, bool binary = false)
{
    plist_t dict = plist_new_dict();
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        plist_dict_set_item(dict, it.key().toUtf8().constData(),
                            plist_new_string(it.value().toString().toUtf8().constData()));
    char *data = nullptr;
    uint32_t length = 0;
    (binary ? plist_to_bin : plist_to_xml)(dict, &data, &length);
    const QByteArray bytes(data, length);
    plist_free(dict);
    free(data);
    return bytes;
}

} // namespace FileTree
