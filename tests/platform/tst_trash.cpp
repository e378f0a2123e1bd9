#include "common/TestHome.h"
#include "platform/Trash.h"

#include <QDirIterator>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSet>
#include <QtTest>

#include <cerrno>
#include <memory>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;
using Platform::TrashFailure;

namespace {

// A fixed zone east of UTC: a DeletionDate written in UTC cannot pass for local time.
constexpr const char *testZone = "QRV-05:30";
constexpr qint64 testZoneOffset = 5 * 3600 + 30 * 60;
constexpr uid_t nobody = 65534;
constexpr auto anyEntry = QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System;

void writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(path));
    file.write(content);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Whether the entry itself exists; a dangling link counts.
bool entryExists(const QString &path)
{
    struct stat st = {};
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0;
}

int modeOf(const QString &path)
{
    struct stat st = {};
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0 ? int(st.st_mode & 07777) : -1;
}

QStringList entries(const QString &folder)
{
    return QDir(folder).entryList(anyEntry, QDir::Name);
}

struct Info
{
    QByteArray rawPath;
    QString path; // decoded
    QByteArray deletionDate;
};

// The record kept beside an item in the Trash: files/<name> has info/<name>.trashinfo.
Info infoOf(const QString &trashedPath)
{
    const QFileInfo item(trashedPath);
    const QString trash = QFileInfo(item.dir().absolutePath()).path();
    const QString file = trash + u"/info/"_s + item.fileName() + u".trashinfo"_s;
    const QList<QByteArray> lines = readFile(file).split('\n');
    Info info;
    if (lines.value(0) != "[Trash Info]")
        return info;
    for (const QByteArray &line : lines) {
        if (line.startsWith("Path="))
            info.rawPath = line.mid(5);
        else if (line.startsWith("DeletionDate="))
            info.deletionDate = line.mid(13);
    }
    info.path = QFile::decodeName(QByteArray::fromPercentEncoding(info.rawPath));
    return info;
}

} // namespace

class TrashTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> m_home;
    QString m_work; // scratch folder for one case's items
    QString m_startFolder;
    bool m_droppedRoot = false;

    QString trash() const { return m_home->file(u".local/share/Trash"_s); }

    // Hands the home to an unprivileged user and becomes it, so permission bits hold for a
    // root run too. Empty when done, else why it cannot be arranged.
    QString dropRoot()
    {
        if (::geteuid() != 0)
            return {};
        bool chowned = true;
        const auto give = [&](const QString &path) {
            chowned = ::lchown(QFile::encodeName(path).constData(), nobody, nobody) == 0 && chowned;
        };
        give(m_home->path());
        for (QDirIterator it(m_home->path(), anyEntry, QDirIterator::Subdirectories); it.hasNext();)
            give(it.next());
        if (!chowned || ::seteuid(nobody) != 0)
            return u"cannot hand the home to an unprivileged user"_s;
        m_droppedRoot = true;
        if (::access(QFile::encodeName(m_home->path()).constData(), W_OK | X_OK) != 0)
            return u"an unprivileged user cannot reach the temporary home"_s;
        return {};
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        qputenv("TZ", testZone);
        m_startFolder = QDir::currentPath();
        m_work = m_home->file(u"work"_s);
    }

    void init()
    {
        qunsetenv("XDG_DATA_HOME");
        for (const QString &path : {m_home->file(u".local"_s), m_work}) {
            QFile::remove(path); // a regular file a case put there
            QDir(path).removeRecursively();
            QVERIFY(!entryExists(path));
        }
        QVERIFY(QDir().mkpath(m_work));
    }

    void cleanup()
    {
        if (m_droppedRoot)
            QVERIFY(::seteuid(0) == 0);
        m_droppedRoot = false;
        QDir::setCurrent(m_startFolder);
        // Read-only folders a failed case left must not stop the next init.
        for (QDirIterator it(m_home->path(), QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden,
                             QDirIterator::Subdirectories);
             it.hasNext();)
            ::chmod(QFile::encodeName(it.next()).constData(), 0700);
    }

    void movesItemsIntoHomeTrash_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("folder");
        QTest::addColumn<QString>("suffix");
        QTest::addColumn<QByteArray>("encodedName");

        QTest::newRow("file") << u"notes.txt"_s << false << QString() << "notes.txt"_ba;
        QTest::newRow("folder") << u"cache"_s << true << QString() << "cache"_ba;
        QTest::newRow("folder given with slashes") << u"cache"_s << true << u"//"_s << "cache"_ba;
        QTest::newRow("hidden file") << u".bashrc"_s << false << QString() << ".bashrc"_ba;
        QTest::newRow("space, percent, Chinese")
            << u"a b%c 中文.txt"_s << false << QString() << "a%20b%25c%20%E4%B8%AD%E6%96%87.txt"_ba;
        QTest::newRow("URL delimiters")
            << u"x#y?z&=+;.txt"_s << false << QString() << "x%23y%3Fz%26%3D%2B%3B.txt"_ba;
    }

    void movesItemsIntoHomeTrash()
    {
        QFETCH(QString, name);
        QFETCH(bool, folder);
        QFETCH(QString, suffix);
        QFETCH(QByteArray, encodedName);

        const QString original = m_work + u'/' + name;
        writeFile(folder ? original + u"/inside.txt"_s : original, "kept");
        const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(testZoneOffset - 1);

        const Platform::TrashMove move = Platform::moveToTrash(
            original + suffix, u"/"_s, Locations::fromEnvironment().userFolders());

        const QDateTime after = QDateTime::currentDateTimeUtc().addSecs(testZoneOffset + 1);
        QVERIFY(move.moved);
        QCOMPARE(move.failure, TrashFailure::none);
        QCOMPARE(move.trashedPath, trash() + u"/files/"_s + name);
        QVERIFY(!entryExists(original));
        QCOMPARE(readFile(folder ? move.trashedPath + u"/inside.txt"_s : move.trashedPath), "kept");

        const Info info = infoOf(move.trashedPath);
        QCOMPARE(info.path, original);
        QVERIFY2(info.rawPath.endsWith('/' + encodedName), info.rawPath.constData());
        static const QRegularExpression format(u"^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d$"_s);
        const QString date = QString::fromLatin1(info.deletionDate);
        QVERIFY2(format.match(date).hasMatch(), qPrintable(date));
        QDateTime deleted = QDateTime::fromString(date, Qt::ISODate);
        deleted.setTimeZone(QTimeZone::utc());
        QVERIFY2(deleted >= before && deleted <= after, qPrintable(date));
    }

    void findsAndCreatesHomeTrash_data()
    {
        QTest::addColumn<QString>("dataHome");
        QTest::addColumn<bool>("underHome");
        QTest::addColumn<QString>("expectedTrash");

        QTest::newRow("absolute XDG_DATA_HOME") << u"data/home"_s << true << u"data/home/Trash"_s;
        QTest::newRow("relative XDG_DATA_HOME ignored")
            << u"relative/share"_s << false << u".local/share/Trash"_s;
        QTest::newRow("no XDG_DATA_HOME") << QString() << false << u".local/share/Trash"_s;
    }

    // None of the Trash exists yet, ~/.local included. Landing in the current folder instead
    // is the failure this guards against.
    void findsAndCreatesHomeTrash()
    {
        QFETCH(QString, dataHome);
        QFETCH(bool, underHome);
        QFETCH(QString, expectedTrash);

        const QString expected = m_home->file(expectedTrash);
        qputenv("XDG_DATA_HOME", QFile::encodeName(underHome ? m_home->file(dataHome) : dataHome));
        const QString cwd = m_work + u"/cwd"_s;
        QVERIFY(QDir().mkpath(cwd) && QDir::setCurrent(cwd));
        writeFile(m_work + u"/item.txt"_s, "x");

        QCOMPARE(Platform::homeTrashItemsPath(Locations::fromEnvironment().userFolders()),
                 expected + u"/files"_s);
        QVERIFY2(!entryExists(expected), "asking for the path must not create the Trash");

        const Platform::TrashMove move = Platform::moveToTrash(
            u"../item.txt"_s, u"/"_s, Locations::fromEnvironment().userFolders());

        QVERIFY(move.moved);
        QCOMPARE(move.trashedPath, expected + u"/files/item.txt"_s);
        QCOMPARE(readFile(move.trashedPath), "x");
        QCOMPARE(infoOf(move.trashedPath).path, m_work + u"/item.txt"_s);
        QCOMPARE(entries(cwd), QStringList());
        QCOMPARE(modeOf(expected + u"/files"_s), 0700);
        QCOMPARE(modeOf(expected + u"/info"_s), 0700);
        for (QString folder = expected; folder != m_home->path(); folder = QFileInfo(folder).path())
            QVERIFY2(modeOf(folder) == 0700, qPrintable(folder));
    }

    void collidingNamesAllLand_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("strays"); // already in the Trash, relative to it
        QTest::addColumn<QStringList>("storedNames");

        const auto names = [](const char *first, const char *second, const char *third) {
            return QStringList{QString::fromUtf8(first), QString::fromUtf8(second),
                               QString::fromUtf8(third)};
        };
        QTest::newRow("extension")
            << u"a.txt"_s << QStringList() << names("a.txt", "a.2.txt", "a.3.txt");
        QTest::newRow("leading dot only")
            << u".bashrc"_s << QStringList() << names(".bashrc", ".bashrc.2", ".bashrc.3");
        QTest::newRow("two extensions")
            << u"a.tar.gz"_s << QStringList() << names("a.tar.gz", "a.tar.2.gz", "a.tar.3.gz");
        QTest::newRow("no extension")
            << u"log"_s << QStringList() << names("log", "log.2", "log.3");
        // A file without its record and a record without its file both keep their names.
        QTest::newRow("past stray entries")
            << u"a.txt"_s << QStringList{u"files/a.txt"_s, u"info/a.2.txt.trashinfo"_s}
            << names("a.3.txt", "a.4.txt", "a.5.txt");
        // 253 bytes, too long once ".trashinfo" is added; cut bytewise, the three-byte
        // characters would break. The stem gives way, whole characters at a time.
        const auto wen = [](int count) { return QString(count, QChar(0x6587)); };
        QTest::newRow("too long for its record")
            << wen(83) + u".txt"_s << QStringList()
            << QStringList{wen(80) + u".txt"_s, wen(79) + u".2.txt"_s, wen(79) + u".3.txt"_s};
    }

    void collidingNamesAllLand()
    {
        QFETCH(QString, name);
        QFETCH(QStringList, strays);
        QFETCH(QStringList, storedNames);

        for (const QString &stray : strays)
            writeFile(trash() + u'/' + stray, "stray");
        QStringList originals;
        for (int i = 0; i < storedNames.size(); ++i) {
            originals << m_work + u'/' + QString::number(i) + u'/' + name;
            writeFile(originals.last(), QByteArray::number(i));
            const Platform::TrashMove move = Platform::moveToTrash(
                originals.last(), u"/"_s, Locations::fromEnvironment().userFolders());
            QVERIFY(move.moved);
            QCOMPARE(move.trashedPath, trash() + u"/files/"_s + storedNames.at(i));
        }
        for (int i = 0; i < storedNames.size(); ++i) {
            const QString trashed = trash() + u"/files/"_s + storedNames.at(i);
            QCOMPARE(readFile(trashed), QByteArray::number(i));
            QCOMPARE(infoOf(trashed).path, originals.at(i));
        }
        for (const QString &stray : strays)
            QCOMPARE(readFile(trash() + u'/' + stray), "stray");
        // Names claimed and given up again leave no record behind.
        QCOMPARE(entries(trash() + u"/files"_s).size() + entries(trash() + u"/info"_s).size(),
                 2 * storedNames.size() + strays.size());
    }

    void movesLinksNotTargets_data()
    {
        QTest::addColumn<QString>("target");
        QTest::addColumn<bool>("folder");
        QTest::addColumn<QString>("suffix");

        QTest::newRow("to a file") << u"t.txt"_s << false << QString();
        QTest::newRow("to a file, given with slash") << u"t.txt"_s << false << u"/"_s;
        QTest::newRow("to a folder") << u"dir"_s << true << QString();
        QTest::newRow("to a folder, given with slash") << u"dir"_s << true << u"/"_s;
        QTest::newRow("dangling") << QString() << false << QString();
    }

    void movesLinksNotTargets()
    {
        QFETCH(QString, target);
        QFETCH(bool, folder);
        QFETCH(QString, suffix);

        const QString targetPath =
            m_work + u"/targets/"_s + (target.isEmpty() ? u"gone"_s : target);
        if (!target.isEmpty())
            writeFile(folder ? targetPath + u"/inside.txt"_s : targetPath, "target");
        const QString link = m_work + u"/link"_s;
        QVERIFY(QFile::link(targetPath, link));

        const Platform::TrashMove move = Platform::moveToTrash(
            link + suffix, u"/"_s, Locations::fromEnvironment().userFolders());

        QVERIFY(move.moved);
        QCOMPARE(move.trashedPath, trash() + u"/files/link"_s);
        QVERIFY(QFileInfo(move.trashedPath).isSymLink());
        QCOMPARE(QFileInfo(move.trashedPath).symLinkTarget(), targetPath);
        QVERIFY(!entryExists(link));
        if (target.isEmpty())
            QVERIFY(!entryExists(targetPath));
        else
            QCOMPARE(readFile(folder ? targetPath + u"/inside.txt"_s : targetPath), "target");
        QCOMPARE(entries(trash() + u"/files"_s), QStringList{u"link"_s});
        QCOMPARE(infoOf(move.trashedPath).path, link);
    }

    void refusesItems_data()
    {
        QTest::addColumn<QString>("path"); // "~" stands for the home
        QTest::addColumn<TrashFailure>("failure");
        QTest::addColumn<int>("errorCode");

        QTest::newRow("missing") << u"~/work/none"_s << TrashFailure::missing << ENOENT;
        QTest::newRow("missing, given with slash")
            << u"~/work/none/"_s << TrashFailure::missing << ENOENT;
        QTest::newRow("empty path") << QString() << TrashFailure::missing << ENOENT;
        QTest::newRow("name over NAME_MAX")
            << u"~/work/"_s + QString(300, u'n') << TrashFailure::nameTooLong << ENAMETOOLONG;
        QTest::newRow("the Trash") << u"~/.local/share/Trash"_s << TrashFailure::other << EINVAL;
        QTest::newRow("its files folder")
            << u"~/.local/share/Trash/files"_s << TrashFailure::other << EINVAL;
        QTest::newRow("an item in it")
            << u"~/.local/share/Trash/files/old.txt"_s << TrashFailure::other << EINVAL;
        QTest::newRow("a folder holding it") << u"~/.local"_s << TrashFailure::other << EINVAL;
    }

    void refusesItems()
    {
        QFETCH(QString, path);
        QFETCH(TrashFailure, failure);
        QFETCH(int, errorCode);

        writeFile(trash() + u"/files/old.txt"_s, "old");
        writeFile(trash() + u"/info/old.txt.trashinfo"_s, "[Trash Info]\n");
        path.replace(u'~', m_home->path());
        const bool existed = !path.isEmpty() && entryExists(path);

        const Platform::TrashMove move =
            Platform::moveToTrash(path, u"/"_s, Locations::fromEnvironment().userFolders());

        QVERIFY(!move.moved);
        QCOMPARE(move.failure, failure);
        QCOMPARE(move.errorCode, errorCode);
        QVERIFY(move.trashedPath.isEmpty());
        QCOMPARE(!path.isEmpty() && entryExists(path), existed);
        QCOMPARE(entries(trash() + u"/files"_s), QStringList{u"old.txt"_s});
        QCOMPARE(entries(trash() + u"/info"_s), QStringList{u"old.txt.trashinfo"_s});
    }

    void unusableTrashLeavesItem_data()
    {
        QTest::addColumn<QString>("obstacle"); // relative to the home
        QTest::addColumn<bool>("readOnly");    // else a regular file where a folder belongs

        for (const char *path : {".local", ".local/share", ".local/share/Trash",
                                 ".local/share/Trash/files", ".local/share/Trash/info"})
            QTest::newRow(("file at " + QByteArray(path)).constData())
                << QString::fromLatin1(path) << false;
        for (const char *path : {".local/share/Trash/files", ".local/share/Trash/info", "work/in"})
            QTest::newRow(("read-only " + QByteArray(path)).constData())
                << QString::fromLatin1(path) << true;
    }

    void unusableTrashLeavesItem()
    {
        QFETCH(QString, obstacle);
        QFETCH(bool, readOnly);

        const QString item = m_work + u"/in/item.txt"_s;
        writeFile(item, "item");
        if (readOnly) {
            QVERIFY(QDir().mkpath(trash() + u"/files"_s) && QDir().mkpath(trash() + u"/info"_s));
            QVERIFY(::chmod(QFile::encodeName(m_home->file(obstacle)).constData(), 0500) == 0);
            if (const QString reason = dropRoot(); !reason.isEmpty())
                QSKIP(qPrintable(reason));
        } else {
            writeFile(m_home->file(obstacle), "obstacle");
        }

        const Platform::TrashMove move =
            Platform::moveToTrash(item, u"/"_s, Locations::fromEnvironment().userFolders());

        QVERIFY(!move.moved);
        QCOMPARE(move.failure, readOnly ? TrashFailure::permissionDenied : TrashFailure::noTrash);
        QCOMPARE(move.errorCode, readOnly ? EACCES : ENOTDIR);
        QCOMPARE(readFile(item), "item");
        if (!readOnly)
            QCOMPARE(readFile(m_home->file(obstacle)), "obstacle");
        QCOMPARE(entries(trash() + u"/info"_s), QStringList());
        QCOMPARE(entries(trash() + u"/files"_s), QStringList());
    }

    void otherFileSystemUsesItsTopFolder_data()
    {
        QTest::addColumn<int>("sharedMode"); // of a $topdir/.Trash made for the case; 0: none
        QTest::addColumn<bool>("sharedIsLink");
        QTest::addColumn<bool>("usesShared");

        QTest::newRow("no shared .Trash") << 0 << false << false;
        QTest::newRow("sticky shared .Trash") << 01777 << false << true;
        QTest::newRow("shared .Trash without sticky bit") << 0777 << false << false;
        QTest::newRow("shared .Trash as a link") << 01777 << true << false;
    }

    void otherFileSystemUsesItsTopFolder()
    {
        QFETCH(int, sharedMode);
        QFETCH(bool, sharedIsLink);
        QFETCH(bool, usesShared);

        // /dev/shm is usually a tmpfs of its own. Whatever this case makes there goes again.
        struct stat top = {}, dev = {}, home = {};
        if (::stat("/dev/shm", &top) != 0 || ::stat("/dev", &dev) != 0 ||
            ::stat(QFile::encodeName(m_home->path()).constData(), &home) != 0 ||
            top.st_dev == home.st_dev || top.st_dev == dev.st_dev)
            QSKIP("/dev/shm is not the top folder of a file system apart from the home");
        const QString uid = QString::number(::geteuid());
        const QString shared = u"/dev/shm/.Trash"_s;
        const QString own = u"/dev/shm/.Trash-"_s + uid;
        if (entryExists(shared))
            QSKIP("/dev/shm already has a shared .Trash; leaving it alone");
        const bool ownExisted = entryExists(own);

        QTemporaryDir scratch(u"/dev/shm/tst_trash-XXXXXX"_s);
        QVERIFY(scratch.isValid());
        QString trashed;
        const auto removeOurs = qScopeGuard([&] {
            ::unlink(QFile::encodeName(shared).constData()); // when it is a link
            QDir(shared).removeRecursively();
            if (!ownExisted) {
                QDir(own).removeRecursively();
            } else if (!trashed.isEmpty()) {
                QFile::remove(trashed);
                QFile::remove(own + u"/info/"_s + QFileInfo(trashed).fileName() + u".trashinfo"_s);
            }
        });
        if (sharedMode != 0) {
            const QString real = sharedIsLink ? scratch.filePath(u"sticky"_s) : shared;
            QVERIFY(QDir().mkpath(real));
            QVERIFY(::chmod(QFile::encodeName(real).constData(), mode_t(sharedMode)) == 0);
            if (sharedIsLink)
                QVERIFY(QFile::link(real, shared));
        }
        const QString item = scratch.filePath(u"in shm.txt"_s);
        writeFile(item, "shm");

        const Platform::TrashMove move =
            Platform::moveToTrash(item, u"/"_s, Locations::fromEnvironment().userFolders());
        trashed = move.trashedPath;

        QVERIFY(move.moved);
        const QString expectedTrash = usesShared ? shared + u'/' + uid : own;
        QVERIFY2(trashed.startsWith(expectedTrash + u"/files/in shm"_s), qPrintable(trashed));
        QCOMPARE(readFile(trashed), "shm");
        QVERIFY(!entryExists(item));
        if (usesShared || !ownExisted)
            QCOMPARE(modeOf(expectedTrash), 0700);
        // Relative to the top folder, so the record stays right wherever the volume mounts.
        QCOMPARE(infoOf(trashed).path, QFileInfo(scratch.path()).fileName() + u"/in shm.txt"_s);
        QCOMPARE(entries(trash() + u"/files"_s), QStringList());
    }

    void concurrentMovesNeverOverwrite()
    {
        constexpr int perThread = 50;
        QStringList originals;
        for (int i = 0; i < 2 * perThread; ++i) {
            originals << m_work + u'/' + QString::number(i) + u"/same.txt"_s;
            writeFile(originals.last(), QByteArray::number(i));
        }

        std::vector<Platform::TrashMove> moves(2 * perThread);
        const auto run = [&](int first) {
            for (int i = first; i < first + perThread; ++i)
                moves[i] = Platform::moveToTrash(originals.at(i), u"/"_s,
                                                 Locations::fromEnvironment().userFolders());
        };
        std::thread one(run, 0);
        std::thread two(run, perThread);
        one.join();
        two.join();

        QSet<QString> trashed;
        for (int i = 0; i < 2 * perThread; ++i) {
            QVERIFY2(moves[i].moved, qPrintable(originals.at(i)));
            QCOMPARE(readFile(moves[i].trashedPath), QByteArray::number(i));
            QCOMPARE(infoOf(moves[i].trashedPath).path, originals.at(i));
            trashed << moves[i].trashedPath;
        }
        QCOMPARE(trashed.size(), 2 * perThread);
        QCOMPARE(entries(trash() + u"/info"_s).size(), 2 * perThread);
        QCOMPARE(entries(trash() + u"/files"_s).size(), 2 * perThread);
    }
};

QTEST_GUILESS_MAIN(TrashTest)
#include "tst_trash.moc"
