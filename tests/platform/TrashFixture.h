#pragma once

#include "common/TestHome.h"
#include "core/disk/DiskScanner.h"
#include "core/system/RealSystem.h"
#include "platform/Trash.h"

#include <QDirIterator>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QStorageInfo>
#include <QtTest>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using Platform::TrashFailure;

// A fixed zone east of UTC: a DeletionDate written in UTC cannot pass for local time.
constexpr const char *testZone = "QRV-05:30";
constexpr uid_t nobody = 65534;
constexpr auto anyEntry = QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System;

constexpr auto native = &QFile::encodeName;

// The entry itself, a dangling link included; -1 when there is none.
inline int modeOf(const QString &path)
{
    struct stat st = {};
    return ::lstat(native(path).constData(), &st) == 0 ? int(st.st_mode & 07777) : -1;
}

inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// "a/b/" makes a folder, "a>b" a link to b ("~" is the home), "a/b" a file holding its name.
inline void build(const QString &root, const QStringList &layout)
{
    QVERIFY(QDir().mkpath(root));
    for (const QString &relative : layout) {
        const QString path = root + u'/' + relative.section(u'>', 0, 0);
        QString target = relative.section(u'>', 1);
        QFile file(path);
        const bool folder = target.isEmpty() && path.endsWith(u'/');
        QVERIFY(QDir().mkpath(folder ? path : QFileInfo(path).path()));
        if (!target.isEmpty())
            QVERIFY(::symlink(native(target.replace(u'~', QDir::homePath())).constData(),
                              native(path).constData()) == 0);
        else if (!folder)
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(relative.toUtf8()) > 0);
    }
}

// Every entry below `root` (outside `skip`) with its mode and link target or contents.
inline QStringList snapshot(const QString &root, const QString &skip = {})
{
    QStringList lines;
    for (QDirIterator it(root, anyEntry, QDirIterator::Subdirectories); it.hasNext();) {
        const QString path = it.next();
        if (!skip.isEmpty() && (path == skip || path.startsWith(skip + u'/')))
            continue;
        lines << path.mid(root.size()) + u' ' + QString::number(modeOf(path), 8) +
                     (it.fileInfo().isSymLink() ? u" -> "_s + it.fileInfo().symLinkTarget()
                                                : u" = "_s + QString::fromUtf8(readFile(path)));
    }
    lines.sort();
    return lines;
}

// Where the record beside files/<name>, info/<name>.trashinfo, says the item came from.
inline QString recorded(const QString &trashedPath)
{
    const QFileInfo item(trashedPath);
    const QString info = QFileInfo(item.path()).path() + u"/info/"_s + item.fileName();
    const QByteArray path = readFile(info + u".trashinfo"_s).split('\n').value(1).mid(5);
    return QFile::decodeName(QByteArray::fromPercentEncoding(path));
}

// What the Trash holds now, as a confirmation counts it.
inline std::optional<Platform::TrashContents> counted()
{
    const auto size = DiskScanner::trashSize(RealSystem(Locations::fromEnvironment()));
    return size ? std::optional(size->contents) : std::nullopt;
}

// A chain of 300 folders below `top`, each holding a file, every 100th a side folder and every
// 7th read-only. Built through descriptors: its path is too long for path calls.
inline bool buildDeep(const QString &top)
{
    const char *name = "ddddddddddddddd";
    int fd = ::open(native(top).constData(), O_RDONLY | O_DIRECTORY);
    bool ok = fd >= 0;
    for (int level = 0; ok && level <= 300; ++level) {
        const int file = ::openat(fd, "f", O_WRONLY | O_CREAT | O_EXCL, 0400);
        ok = file >= 0 && ::close(file) == 0 && ::mkdirat(fd, name, 0700) == 0;
        if (ok && level % 100 == 0)
            ok = ::mkdirat(fd, "side", 0700) == 0 && ::mkdirat(fd, "side/inner", 0700) == 0;
        const int next = ::openat(fd, name, O_RDONLY);
        if (ok && level % 7 == 3)
            ok = ::fchmod(fd, 0500) == 0;
        ::close(fd);
        fd = next;
    }
    return ::close(fd) == 0 && ok;
}

// The temporary home, its Trash and the helpers every Trash test shares; the test classes
// call setUp(), reset() and tidy() from initTestCase(), init() and cleanup().
class TrashFixture
{
protected:
    TestHome m_home;
    QList<QStringList> m_undo; // commands that give back what a case bound or locked
    bool m_droppedRoot = false;
    std::optional<Platform::TrashBatch> m_batch; // one per case, as a clean-up holds one

    static QStringList entries(const QString &folder) { return QDir(folder).entryList(anyEntry); }
    static Platform::UserFolders user() { return Locations::fromEnvironment().userFolders(); }
    Platform::TrashMove trashIt(const QString &path)
    {
        return (m_batch ? *m_batch : m_batch.emplace(user())).move(path, u"/"_s);
    }
    QString home(const QString &relative) const { return m_home.file(relative); }
    QString trash() const
    {
        const QString data = qEnvironmentVariable("XDG_DATA_HOME"); // honoured when absolute
        return (data.startsWith(u'/') ? data : home(u".local/share"_s)) + u"/Trash"_s;
    }
    QString files() const { return trash() + u"/files"_s; }
    QString info() const { return trash() + u"/info"_s; }

    // Builds `layout` in a scratch folder and trashes each top-level entry the app's way.
    void trashLayout(const QStringList &layout)
    {
        build(home(u"work"_s), layout);
        const qsizetype open =
            entries(u"/proc/self/fd"_s).size(); // a batch keeps none past its end
        for (const QString &name : entries(home(u"work"_s)))
            QVERIFY2(trashIt(home(u"work/"_s + name)).moved, qPrintable(name));
        m_batch.reset();
        QCOMPARE(entries(u"/proc/self/fd"_s).size(), open);
    }

    // Hands the home to an unprivileged user and becomes it, so that permission bits hold for
    // root too. False when that cannot be done.
    bool dropRoot()
    {
        if (::geteuid() != 0)
            return true;
        bool chowned = ::lchown(native(m_home.path()).constData(), nobody, nobody) == 0;
        for (QDirIterator it(m_home.path(), anyEntry, QDirIterator::Subdirectories); it.hasNext();)
            chowned = ::lchown(native(it.next()).constData(), nobody, nobody) == 0 && chowned;
        m_droppedRoot = chowned && ::seteuid(nobody) == 0;
        return m_droppedRoot;
    }

    void setUp()
    {
        qputenv("TZ", testZone);
        // Far fewer descriptors than a deep tree has levels: held folders must stay bounded.
        const rlimit tight = {128, 128};
        QVERIFY(::setrlimit(RLIMIT_NOFILE, &tight) == 0);
    }

    void reset()
    {
        m_batch.reset();
        qunsetenv("XDG_DATA_HOME");
        for (const QString &name : entries(m_home.path()))
            QVERIFY(QFile::remove(home(name)) || QDir(home(name)).removeRecursively());
    }

    void tidy()
    {
        QVERIFY(!std::exchange(m_droppedRoot, false) || ::seteuid(0) == 0);
        QDir::setCurrent(m_home.path());
        for (const QStringList &command : std::exchange(m_undo, {}))
            QProcess::execute(command.first(), command.mid(1));
        // Read-only folders a case left must not stop the next init.
        QProcess::execute(u"chmod"_s, {u"-R"_s, u"u+rwx"_s, m_home.path()});
    }
};
