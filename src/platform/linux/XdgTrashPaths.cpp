#include "platform/linux/XdgTrashPaths.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QtGlobal>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace Platform::XdgTrash {

namespace {

constexpr mode_t privateMode = 0700;
constexpr qsizetype infoSuffixSize = sizeof(".trashinfo") - 1;
constexpr qsizetype maxStoredName = NAME_MAX - infoSuffixSize;

QByteArray withoutTrailingSlashes(QByteArray path)
{
    while (path.size() > 1 && path.endsWith('/'))
        path.chop(1);
    return path;
}

Folder unusable(int error)
{
    const bool denied = error == EACCES || error == EPERM || error == EROFS;
    return {{}, {}, denied ? TrashFailure::permissionDenied : TrashFailure::noTrash, error};
}

// 0 when `path` is a folder (created here if missing), else the errno to report. A path
// that exists but is no folder reads as ENOTDIR.
int ensureFolder(const QByteArray &path, bool followLinks)
{
    for (int round = 0; round < 2; ++round) {
        struct stat st = {};
        const int found =
            followLinks ? ::stat(path.constData(), &st) : ::lstat(path.constData(), &st);
        if (found == 0)
            return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
        if (errno != ENOENT)
            return errno;
        if (::mkdir(path.constData(), privateMode) == 0)
            return 0;
        if (errno != EEXIST)
            return errno;
        // Someone else created it meanwhile: look again.
    }
    return EEXIST;
}

// A folder on shared ground that only we may use: a real folder, not a link, owned by us.
Folder privateFolder(const QByteArray &path)
{
    if (const int error = ensureFolder(path, false))
        return unusable(error);
    struct stat st = {};
    if (::lstat(path.constData(), &st) != 0)
        return unusable(errno);
    if (st.st_uid != ::geteuid())
        return {{}, {}, TrashFailure::noTrash, EPERM};
    return {path, {}, TrashFailure::none, 0};
}

int ensureItemFolders(const QByteArray &trash, bool followLinks)
{
    for (const char *sub : {"files", "info"}) {
        if (const int error = ensureFolder(joined(trash, sub), followLinks))
            return error;
    }
    return 0;
}

// The highest folder above `dir` still on `device`: the mount's top folder.
QByteArray mountTop(QByteArray dir, dev_t device)
{
    while (dir != "/") {
        const QByteArray up = parentOf(dir);
        struct stat st = {};
        if (::stat(up.constData(), &st) != 0 || st.st_dev != device)
            break;
        dir = up;
    }
    return dir;
}

// The longest prefix of `bytes` within `limit` that does not end inside a UTF-8 sequence.
QByteArray utf8Prefix(const QByteArray &bytes, qsizetype limit)
{
    if (bytes.size() <= limit)
        return bytes;
    qsizetype cut = limit;
    while (cut > 0 && (static_cast<unsigned char>(bytes.at(cut)) & 0xC0) == 0x80)
        --cut;
    return bytes.left(cut);
}

} // namespace

int renameNoReplace(int fromDir, const char *from, int toDir, const char *to)
{
    if (::renameat2(fromDir, from, toDir, to, RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    struct stat st = {};
    if (::fstatat(toDir, to, &st, AT_SYMLINK_NOFOLLOW) == 0)
        return EEXIST;
    if (::renameat(fromDir, from, toDir, to) == 0)
        return 0;
    return errno == ENOTEMPTY ? EEXIST : errno;
}

std::optional<QByteArray> realPath(const QByteArray &path)
{
    char *resolved = ::realpath(path.constData(), nullptr);
    if (resolved == nullptr)
        return std::nullopt;
    QByteArray result(resolved);
    std::free(resolved);
    return result;
}

QByteArray joined(const QByteArray &dir, const QByteArray &name)
{
    return dir.endsWith('/') ? dir + name : dir + '/' + name;
}

QByteArray parentOf(const QByteArray &path)
{
    const qsizetype slash = path.lastIndexOf('/');
    return slash <= 0 ? QByteArray("/") : path.left(slash);
}

bool isStandard(const QByteArray &path)
{
    if (!path.startsWith('/') || path == "/" || path.contains('\0'))
        return false;
    const QList<QByteArray> parts = path.mid(1).split('/');
    return std::none_of(parts.begin(), parts.end(), [](const QByteArray &part) {
        return part.isEmpty() || part == "." || part == "..";
    });
}

QByteArray standardized(const QString &given)
{
    QByteArray raw = QFile::encodeName(given);
    if (isStandard(raw)) // as the guard's paths are
        return raw;
    if (!raw.startsWith('/'))
        raw = joined(QFile::encodeName(QDir::currentPath()), raw);
    QList<QByteArray> parts;
    for (const QByteArray &part : raw.split('/')) {
        if (part.isEmpty() || part == ".")
            continue;
        if (part == "..") {
            if (!parts.isEmpty())
                parts.removeLast();
            continue;
        }
        parts.append(part);
    }
    return '/' + parts.join('/');
}

QByteArray homeTrashPath(const UserFolders &user)
{
    const QByteArray dataHome = QFile::encodeName(user.dataHome);
    if (dataHome.startsWith('/'))
        return joined(withoutTrailingSlashes(dataHome), "Trash");
    const QByteArray home = QFile::encodeName(user.home);
    if (!home.startsWith('/'))
        return {};
    return joined(withoutTrailingSlashes(home), ".local/share/Trash");
}

QByteArray trashBase(const UserFolders &user)
{
    const QByteArray dataHome = QFile::encodeName(user.dataHome);
    if (dataHome.startsWith('/'))
        return dataHome;
    const QByteArray home = QFile::encodeName(user.home);
    return home.startsWith('/') ? home : QByteArray();
}

std::optional<dev_t> deviceOf(QByteArray path)
{
    for (;;) {
        struct stat st = {};
        if (::stat(path.constData(), &st) == 0)
            return st.st_dev;
        if (path == "/")
            return std::nullopt;
        path = parentOf(path);
    }
}

Folder prepareHomeTrash(const QByteArray &trashPath)
{
    // Every missing level is created private, ~/.local and ~/.local/share included.
    for (qsizetype slash = trashPath.indexOf('/', 1); slash != -1;
         slash = trashPath.indexOf('/', slash + 1)) {
        if (trashPath.at(slash - 1) == '/')
            continue;
        if (const int error = ensureFolder(trashPath.left(slash), true))
            return unusable(error);
    }
    if (const int error = ensureFolder(trashPath, true))
        return unusable(error);
    if (const int error = ensureItemFolders(trashPath, true))
        return unusable(error);
    return {trashPath, {}, TrashFailure::none, 0};
}

Folder prepareTopTrash(const QByteArray &realDir, dev_t device)
{
    const QByteArray topDir = mountTop(realDir, device);
    const QByteArray uid = QByteArray::number(::geteuid());

    // The shared folder counts only as the administrator sets it up: a real folder with the
    // sticky bit, so users cannot remove each other's subfolders. Anything else is ignored.
    const QByteArray shared = joined(topDir, ".Trash");
    struct stat st = {};
    if (::lstat(shared.constData(), &st) == 0 && S_ISDIR(st.st_mode) && (st.st_mode & S_ISVTX)) {
        const QByteArray mine = joined(shared, uid);
        if (privateFolder(mine).failure == TrashFailure::none &&
            ensureItemFolders(mine, false) == 0)
            return {mine, topDir, TrashFailure::none, 0};
    }

    Folder own = privateFolder(joined(topDir, ".Trash-" + uid));
    if (own.failure != TrashFailure::none)
        return own;
    if (const int error = ensureItemFolders(own.path, false))
        return unusable(error);
    own.topDir = topDir;
    return own;
}

QByteArray storedName(const QByteArray &name, int attempt)
{
    const QByteArray counter = attempt > 1 ? '.' + QByteArray::number(attempt) : QByteArray();
    const qsizetype dot = name.lastIndexOf('.');
    // ".bashrc" has no extension; neither has "name." (nothing after the dot).
    const bool hasExtension = dot > 0 && dot < name.size() - 1;
    QByteArray stem = hasExtension ? name.left(dot) : name;
    QByteArray tail = hasExtension ? counter + name.mid(dot) : counter;
    if (tail.size() > maxStoredName / 2) { // an "extension" that long is part of the name
        stem = name;
        tail = counter;
    }
    return utf8Prefix(stem, maxStoredName - tail.size()) + tail;
}

QByteArray infoText(const QByteArray &path)
{
    // localtime_r, unlike Qt's local clock, does not read the zone file again per item.
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    char text[32] = {};
    const QByteArray date =
        ::localtime_r(&now, &local) != nullptr &&
                std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local) != 0
            ? QByteArray(text)
            : QDateTime::currentDateTime().toString(u"yyyy-MM-dd'T'HH:mm:ss"_s).toLatin1();
    return "[Trash Info]\nPath=" + path.toPercentEncoding("/") + "\nDeletionDate=" + date + '\n';
}

} // namespace Platform::XdgTrash
