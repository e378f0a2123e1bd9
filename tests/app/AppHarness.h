#pragma once

#include "common/Xvfb.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QThread>
#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// What the app tests share: the environment a child `quorvel` runs in, fixture files,
// a record of a folder tree, and a private X server with ways to watch the app in it.
namespace AppHarness {

using namespace Qt::StringLiterals;

inline QString appPath()
{
    return QStringLiteral(QUORVEL_APP_PATH);
}

// The build folder the app was built in: the nearest parent holding CMakeCache.txt.
inline QString buildDir()
{
    for (QDir dir = QFileInfo(appPath()).dir(); !dir.isRoot(); dir.cdUp()) {
        if (dir.exists(u"CMakeCache.txt"_s))
            return dir.path();
    }
    return QFileInfo(appPath()).path();
}

// The child sees only the fixture: its own HOME (whose cache folder holds the
// single-instance socket) and temporary folder, no XDG_* variables, no session bus (so no
// tray host can be found), and an App Store address that refuses at once.
inline QProcessEnvironment childEnvironment(const QString &home, const QString &tmp,
                                            const QString &lang, const QString &platform)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    const QStringList keys = env.keys();
    for (const QString &key : keys) {
        if (key.startsWith(u"XDG_"_s) || key.startsWith(u"LC_"_s) || key.startsWith(u"QT_"_s) ||
            key.startsWith(u"QUORVEL_"_s))
            env.remove(key);
    }
    for (const QString &key : {u"LANGUAGE"_s, u"DISPLAY"_s, u"WAYLAND_DISPLAY"_s})
        env.remove(key);
    env.insert(u"HOME"_s, home);
    env.insert(u"TMPDIR"_s, tmp);
    env.insert(u"LANG"_s, lang);
    env.insert(u"QT_QPA_PLATFORM"_s, platform);
    env.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, u"unix:path="_s + tmp + u"/no-bus"_s);
    env.insert(u"QUORVEL_APP_STORE_URL"_s, u"http://127.0.0.1:9"_s);
    return env;
}

inline bool writeFile(const QString &path, qint64 bytes)
{
    if (!QDir().mkpath(QFileInfo(path).path()))
        return false;
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(QByteArray(bytes, 'q')) == bytes;
}

// A file whose blocks are reserved but never written. False when the file system
// cannot reserve them (then the caller skips).
inline bool allocateFile(const QString &path, qint64 bytes)
{
    if (!QDir().mkpath(QFileInfo(path).path()))
        return false;
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0)
        return false;
    const bool ok = ::posix_fallocate(fd, 0, bytes) == 0;
    ::close(fd);
    if (!ok)
        QFile::remove(path);
    return ok;
}

// Allocated bytes of the regular files below `root`, as the app's measurement counts them.
inline qint64 allocatedBytes(const QString &root)
{
    qint64 total = 0;
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        struct stat st;
        if (::lstat(QFile::encodeName(it.next()).constData(), &st) == 0 && S_ISREG(st.st_mode))
            total += qint64(st.st_blocks) * 512;
    }
    return total;
}

// `count` empty files in each of `folders` folders below `root`.
inline bool emptyFiles(const QString &root, int folders, int count)
{
    for (int folder = 0; folder < folders; ++folder) {
        const QString path = root + u"/part"_s + QString::number(folder);
        if (!QDir().mkpath(path))
            return false;
        for (int file = 0; file < count; ++file) {
            const QByteArray name = QFile::encodeName(path + u'/' + QString::number(file));
            const int fd = ::open(name.constData(), O_WRONLY | O_CREAT, 0644);
            if (fd < 0)
                return false;
            ::close(fd);
        }
    }
    return true;
}

// Copies the PNGs of `from` into a fresh `to`, for people to look at.
inline void keepPictures(const QString &from, const QString &to)
{
    QDir(to).removeRecursively();
    QDir().mkpath(to);
    for (const QString &name : QDir(from).entryList({u"*.png"_s}, QDir::Files))
        QFile::copy(from + u'/' + name, to + u'/' + name);
}

// Every entry below `root` with its size and modification time, keyed by relative path.
inline QMap<QString, QString> record(const QString &root)
{
    QMap<QString, QString> entries;
    QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QFileInfo info(it.next());
        entries.insert(QDir(root).relativeFilePath(info.filePath()),
                       QString::number(info.size()) + u' ' +
                           QString::number(info.lastModified().toMSecsSinceEpoch()));
    }
    return entries;
}

// Runs xdotool against `display`; true when it succeeded.
inline bool xdotool(const QString &display, const QStringList &arguments, QString *out = nullptr)
{
    QProcess tool;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"DISPLAY"_s, display);
    tool.setProcessEnvironment(env);
    tool.start(u"xdotool"_s, arguments);
    if (!tool.waitForFinished(5000))
        return false;
    if (out)
        *out = QString::fromUtf8(tool.readAllStandardOutput());
    return tool.exitStatus() == QProcess::NormalExit && tool.exitCode() == 0;
}

// Visible top-level windows of the app, whatever their title (the cleaning overlay has none).
inline int visibleAppWindows(const QString &display)
{
    QString out;
    // Exit status 1 just means none matched.
    xdotool(display, {u"search"_s, u"--onlyvisible"_s, u"--classname"_s, u"^quorvel$"_s}, &out);
    return int(out.split(u'\n', Qt::SkipEmptyParts).size());
}

inline int quorvelWindows(const QString &display)
{
    QString out;
    // Visible only: xdotool matches names without regard to case, and Qt's hidden client
    // leader window is named after the executable, "quorvel".
    if (!xdotool(display, {u"search"_s, u"--onlyvisible"_s, u"--name"_s, u"^Quorvel$"_s}, &out) &&
        !out.isEmpty())
        return -1;
    return int(out.split(u'\n', Qt::SkipEmptyParts).size());
}

// Ends `app` with `signal` and tells whether it left normally within `ms`.
inline bool endsWithin(QProcess &app, int signal, int ms)
{
    QElapsedTimer clock;
    clock.start();
    ::kill(pid_t(app.processId()), signal);
    const bool ended = app.waitForFinished(ms) && clock.elapsed() <= ms;
    return ended && app.exitStatus() == QProcess::NormalExit && app.exitCode() == 0;
}

// Waits for exactly one visible tools window of `app`; an app that ends meanwhile fails
// at once, with what it said.
inline bool toolsWindowOpens(QProcess &app, const QString &display)
{
    const bool open =
        waitFor([&] { return app.waitForFinished(0) || quorvelWindows(display) == 1; }, 15'000);
    if (app.state() == QProcess::NotRunning) {
        qWarning("the app ended early: %s", app.readAll().constData());
        return false;
    }
    return open;
}

} // namespace AppHarness
