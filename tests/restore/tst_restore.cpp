#include "common/TestHome.h"
#include "core/cleanup/Cleaner.h"
#include "core/cleanup/Restorer.h"
#include "core/models/CleanModel.h"
#include "core/text/L10n.h"
#include "core/words/RestoreWords.h"
#include "support/FakeSystem.h"

#include <QDirIterator>
#include <QProcess>
#include <QtTest>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using Kind = Restorer::Outcome::Kind;

namespace {

constexpr auto anyEntry = QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System;

// Every entry below `root` with its mode and its link target or contents.
QStringList snapshot(const QString &root)
{
    QStringList lines;
    for (QDirIterator it(root, anyEntry, QDirIterator::Subdirectories); it.hasNext();) {
        const QString path = it.next();
        struct stat st = {};
        ::lstat(QFile::encodeName(path).constData(), &st);
        QFile file(path);
        const QString what = S_ISLNK(st.st_mode) ? QFile::symLinkTarget(path)
                             : S_ISREG(st.st_mode) && file.open(QIODevice::ReadOnly)
                                 ? QString::fromUtf8(file.readAll())
                                 : QString();
        lines << path.mid(root.size()) + u' ' + QString::number(st.st_mode, 8) + u' ' + what;
    }
    lines.sort();
    return lines;
}

// "a/" a folder, "a>t" a link to t, "a" a file holding its own name; modes vary.
void build(const QString &root, const QStringList &layout)
{
    for (const QString &entry : layout) {
        const QString path = root + u'/' + entry.section(u'>', 0, 0);
        QVERIFY(QDir().mkpath(entry.endsWith(u'/') ? path : QFileInfo(path).path()));
        if (entry.contains(u'>')) {
            QVERIFY(QFile::link(entry.section(u'>', 1), path));
        } else if (!entry.endsWith(u'/')) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(entry.toUtf8()) > 0);
            QVERIFY(::chmod(QFile::encodeName(path).constData(), 0600 + entry.size() % 2 * 0100) ==
                    0);
        }
    }
}

CleanItem item(const QString &path)
{
    CleanItem item;
    item.path = path;
    item.category = CleanCategory::largeFiles;
    return item;
}

// What trash-list (a peer reading the same Trash) shows, or nullopt without it.
std::optional<QString> peerListing()
{
    if (QStandardPaths::findExecutable(u"trash-list"_s).isEmpty())
        return std::nullopt;
    QProcess peer;
    peer.start(u"trash-list"_s, {});
    peer.waitForFinished(10'000);
    return QString::fromUtf8(peer.readAllStandardOutput());
}

QStringList lines(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly)
               ? QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts)
               : QStringList();
}

} // namespace

class TestRestore final : public QObject
{
    Q_OBJECT

    TestHome m_home;
    QString work() const { return m_home.file(u"work"_s); }
    QString trashFiles() const { return m_home.file(u".local/share/Trash/files"_s); }
    QString trashInfo() const { return m_home.file(u".local/share/Trash/info"_s); }

    // Cleans the given entries below ~/work as large files; every one must move.
    void clean(const QStringList &names, const System &system) const
    {
        QList<CleanItem> items;
        for (const QString &name : names)
            items.append(item(work() + u'/' + name));
        QCOMPARE(Cleaner::remove(items, system).count, names.size());
    }

    static Restorer::Outcome restoreOne(const System &system, const Restorer::Move &move)
    {
        return Restorer::restore({move}, system).items.value(0);
    }

private Q_SLOTS:
    void initTestCase()
    {
#ifndef Q_OS_LINUX
        QSKIP("round trips go through the real Trash of the machine");
#endif
        L10n::overrideForTesting(false);
    }

    void init()
    {
        for (const QString &name : QDir(m_home.path()).entryList(anyEntry))
            QVERIFY(::unlink(QFile::encodeName(m_home.file(name)).constData()) == 0 ||
                    QDir(m_home.file(name)).removeRecursively());
    }

    void roundTrip_data()
    {
        QTest::addColumn<QStringList>("layout");
        QTest::addColumn<QStringList>("taken");
        QTest::newRow("file") << QStringList{u"f.txt"_s} << QStringList{u"f.txt"_s};
        QTest::newRow("folder") << QStringList{u"d/a"_s, u"d/sub/bb"_s, u"d/empty/"_s}
                                << QStringList{u"d"_s};
        QTest::newRow("links") << QStringList{u"abs>/etc/passwd"_s, u"dangling>nowhere"_s}
                               << QStringList{u"abs"_s, u"dangling"_s};
        QTest::newRow("names") << QStringList{u"a b/Ünïcødé 文件"_s, u"tab\tname"_s}
                               << QStringList{u"a b/Ünïcødé 文件"_s, u"tab\tname"_s};
        QTest::newRow("same name, two folders")
            << QStringList{u"x/same"_s, u"y/same"_s, u"z/same.tar.gz"_s, u"w/same.tar.gz"_s}
            << QStringList{u"x/same"_s, u"y/same"_s, u"z/same.tar.gz"_s, u"w/same.tar.gz"_s};
        QTest::newRow("nested: folder after its child")
            << QStringList{u"p/q/r"_s, u"p/s"_s} << QStringList{u"p/q/r"_s, u"p"_s};
    }

    void roundTrip()
    {
        QFETCH(QStringList, layout);
        QFETCH(QStringList, taken);
        FakeSystem system(m_home.where());
        build(work(), layout);
        const QStringList before = snapshot(work());
        clean(taken, system);
        QVERIFY(snapshot(work()) != before);

        const QList<Restorer::Move> moves = Restorer::restorable(system);
        QCOMPARE(moves.size(), taken.size());
        const Restorer::Result result = Restorer::restore(moves, system);
        QCOMPARE(result.count, taken.size());
        QCOMPARE(snapshot(work()), before);
        QCOMPARE(QDir(trashFiles()).entryList(anyEntry), QStringList());
        QCOMPARE(QDir(trashInfo()).entryList(anyEntry), QStringList());
        QVERIFY(Restorer::restorable(system).isEmpty());
        const QStringList log = lines(m_home.where().removalLog());
        QCOMPARE(log.size(), 2 * taken.size());
        for (const QString &line : log.mid(taken.size()))
            QCOMPARE(line.section(u'\t', 1, 2), u"restored\tlargeFiles"_s);
        QVERIFY(!Restorer::parseLine(log.last()));
    }

    // Each case cleans ~/work/item, then disturbs something; the item must stay in the Trash
    // (or where another tool put it) and nothing else may change.
    void refused_data()
    {
        QTest::addColumn<QString>("code");
        QTest::addColumn<std::function<void(Restorer::Move &, const QString &info)>>("disturb");
        using Disturb = std::function<void(Restorer::Move &, const QString &)>;
        QTest::newRow("destination exists again")
            << u"destinationExists"_s
            << Disturb([this](Restorer::Move &, const QString &) { build(work(), {u"item"_s}); });
        QTest::newRow("already put back by another tool")
            << u"gone"_s << Disturb([this](Restorer::Move &m, const QString &) {
                   QVERIFY(QFile::rename(m.trashedPath, work() + u"/elsewhere"_s));
               });
        QTest::newRow("forged: outside any Trash")
            << u"notInTrash"_s << Disturb([](Restorer::Move &m, const QString &) {
                   m.trashedPath = u"/etc/passwd"_s;
               });
        QTest::newRow("forged: a .Trash-uid that is no mount's top")
            << u"notInTrash"_s << Disturb([this](Restorer::Move &m, const QString &) {
                   const QString fake = m_home.file(u"v/.Trash-"_s) + QString::number(::geteuid());
                   QVERIFY(QDir().mkpath(fake + u"/files"_s));
                   QVERIFY(QFile::rename(m.trashedPath, fake + u"/files/item"_s));
                   m.trashedPath = fake + u"/files/item"_s;
               });
        QTest::newRow("forged: the Trash's files/ is a link")
            << u"throughLink"_s << Disturb([this](Restorer::Move &, const QString &) {
                   QVERIFY(QFile::rename(trashFiles(), m_home.file(u"real"_s)));
                   QVERIFY(QFile::link(m_home.file(u"real"_s), trashFiles()));
               });
        QTest::newRow("original's folder is now a link")
            << u"throughLink"_s << Disturb([this](Restorer::Move &, const QString &) {
                   QVERIFY(QFile::rename(work(), m_home.file(u"moved"_s)));
                   QVERIFY(QFile::link(m_home.file(u"moved"_s), work()));
               });
        QTest::newRow("record names another place")
            << u"recordMismatch"_s << Disturb([](Restorer::Move &, const QString &info) {
                   QFile file(info);
                   QVERIFY(file.open(QIODevice::WriteOnly));
                   file.write(
                       "[Trash Info]\nPath=/root/elsewhere\nDeletionDate=2026-01-01T00:00:00\n");
               });
        QTest::newRow("record missing")
            << u"recordMismatch"_s
            << Disturb([](Restorer::Move &, const QString &info) { QVERIFY(QFile::remove(info)); });
        QTest::newRow("original inside the Trash")
            << u"badOriginal"_s << Disturb([this](Restorer::Move &m, const QString &) {
                   m.original = trashInfo() + u"/x"_s;
               });
        QTest::newRow("original not plain")
            << u"badOriginal"_s << Disturb([this](Restorer::Move &m, const QString &) {
                   m.original = work() + u"/../work/item"_s;
               });
    }

    void refused()
    {
        QFETCH(QString, code);
        QFETCH(std::function<void(Restorer::Move &, const QString &)>, disturb);
        FakeSystem system(m_home.where());
        build(work(), {u"item"_s});
        clean({u"item"_s}, system);
        Restorer::Move move = Restorer::restorable(system).value(0);
        QVERIFY(!move.trashedPath.isEmpty());
        disturb(move, trashInfo() + u"/item.trashinfo"_s);
        const QStringList home = snapshot(m_home.path());

        const Restorer::Outcome outcome = restoreOne(system, move);
        QCOMPARE(Restorer::code(outcome), code);
        QVERIFY(!Words::reason(outcome).isEmpty());
        QCOMPARE(snapshot(m_home.path()).filter(u"/work"_s), home.filter(u"/work"_s));
        QCOMPARE(lines(m_home.where().removalLog()).size(), 1); // no restore line
        if (code != u"gone" && code != u"destinationExists")
            QVERIFY2(system.checkRestore(move.trashedPath, move.original, m_home.path(), true) !=
                         Platform::RestoreFailure::none,
                     "listed although it cannot go back");
    }

    void missingFolder_data()
    {
        QTest::addColumn<bool>("inHome");
        QTest::newRow("inside home: made again, private") << true;
        QTest::newRow("outside home: refused") << false;
    }

    void missingFolder()
    {
        QFETCH(bool, inHome);
        FakeSystem system(m_home.where());
        build(work(), {u"deep/er/item"_s});
        clean({u"deep/er/item"_s}, system);
        Restorer::Move move = Restorer::restorable(system).value(0);
        QVERIFY(QDir(work() + u"/deep"_s).removeRecursively());
        const QString outside = u"/quorvel-restore-"_s + QString::number(::getpid());
        if (!inHome) {
            move.original = outside + u"/er/item"_s;
            QFile info(trashInfo() + u"/item.trashinfo"_s);
            QVERIFY(info.open(QIODevice::WriteOnly));
            info.write("[Trash Info]\nPath=" + QFile::encodeName(move.original) + "\n");
        }
        const Restorer::Outcome outcome = restoreOne(system, move);
        QCOMPARE(Restorer::code(outcome), inHome ? u"restored"_s : u"parentMissing"_s);
        QCOMPARE(QFileInfo::exists(work() + u"/deep/er/item"_s), inHome);
        QVERIFY(!QFileInfo::exists(outside));
        QCOMPARE(QFileInfo::exists(move.trashedPath), !inHome);
        struct stat st = {};
        QCOMPARE(::stat(QFile::encodeName(work() + u"/deep"_s).constData(), &st) == 0, inHome);
        QVERIFY(!inHome || (st.st_mode & 07777) == 0700);
    }

    void raceHasOneWinner()
    {
        FakeSystem system(m_home.where());
        for (int round = 0; round < 40; ++round) {
            build(work(), {u"item"_s});
            clean({u"item"_s}, system);
            const Restorer::Move move = Restorer::restorable(system).value(0);
            Restorer::Outcome a, b;
            std::thread first([&] { a = restoreOne(system, move); });
            b = restoreOne(system, move);
            first.join();
            QCOMPARE(int(a.kind == Kind::restored) + int(b.kind == Kind::restored), 1);
            QVERIFY((a.kind == Kind::restored ? b.kind : a.kind) != Kind::failed);
            QCOMPARE(QDir(trashFiles()).entryList(anyEntry), QStringList());
            QVERIFY(QFile::remove(work() + u"/item"_s));
        }
    }

    void readOnlyTrash()
    {
        FakeSystem system(m_home.where());
        build(work(), {u"item"_s});
        clean({u"item"_s}, system);
        const Restorer::Move move = Restorer::restorable(system).value(0);
        constexpr uid_t nobody = 65534;
        const bool root = ::geteuid() == 0;
        if (root) { // permission bits bind root only once it is someone else
            for (QDirIterator it(m_home.path(), anyEntry, QDirIterator::Subdirectories);
                 it.hasNext();)
                QVERIFY(::lchown(QFile::encodeName(it.next()).constData(), nobody, nobody) == 0);
            QVERIFY(::lchown(QFile::encodeName(m_home.path()).constData(), nobody, nobody) == 0);
            QVERIFY(::seteuid(nobody) == 0);
        }
        QVERIFY(QFile::setPermissions(trashFiles(), QFile::ReadOwner | QFile::ExeOwner));
        const Restorer::Outcome outcome = restoreOne(system, move);
        QVERIFY(QFile::setPermissions(trashFiles(),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QVERIFY(!root || ::seteuid(0) == 0);
        QCOMPARE(Restorer::code(outcome), u"permissionDenied"_s);
        QVERIFY(QFileInfo::exists(move.trashedPath));
        QVERIFY(QFileInfo::exists(trashInfo() + u"/item.trashinfo"_s));
        QVERIFY(!QFileInfo::exists(work() + u"/item"_s));
    }

    void parseLine_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("original"); // empty: not a restorable move
        QTest::addColumn<QString>("trashed");
        const auto row = [](const char *tag, const QString &fields, const QString &original = {},
                            const QString &trashed = {}) {
            QTest::newRow(tag) << u"2026-11-16T20:48:37Z\t"_s + fields << original << trashed;
        };
        row("move", u"logs\t1 KB\t/h/a → /h/T/files/a"_s, u"/h/a"_s, u"/h/T/files/a"_s);
        row("arrow in a folder", u"logs\t1 KB\t/h/x → /y → /T/files/y"_s, u"/h/x → /y"_s,
            u"/T/files/y"_s);
        row("escapes", u"logs\t1 KB\t/h/a\\tb\\\\c\\x01 → /T/files/a"_s, u"/h/a\tb\\c\x01"_s,
            u"/T/files/a"_s);
        row("restore line", u"restored\tlogs\t/h/a ← /h/T/files/a"_s);
        row("no path in the Trash", u"logs\t1 KB\t/h/a → Trash"_s);
        row("unknown category", u"passwd\t1 KB\t/h/a → /T/files/a"_s);
        row("bad escape", u"logs\t1 KB\t/h/a\\q → /T/files/a"_s);
        row("bad time", u"logs\t1 KB\t/h/a → /T/files/a"_s.prepend(u"x"_s));
        row("five fields", u"logs\t1 KB\t/h/a → /T/files/a\tx"_s);
    }

    void parseLine()
    {
        QFETCH(QString, line);
        QFETCH(QString, original);
        QFETCH(QString, trashed);
        const std::optional<Restorer::Move> move = Restorer::parseLine(line);
        QCOMPARE(move.has_value(), !original.isEmpty());
        if (move) {
            QCOMPARE(move->original, original);
            QCOMPARE(move->trashedPath, trashed);
            QCOMPARE(move->time, QDateTime(QDate(2026, 11, 16), QTime(20, 48, 37), Qt::UTC));
        }
    }

    void summaryShowsFiveThenCounts()
    {
        Restorer::Result result;
        for (int i = 0; i < 9; ++i) {
            Restorer::Outcome outcome;
            outcome.shown = u"~/o"_s + QString::number(i);
            outcome.kind = Kind::gone;
            result.items.append(outcome);
        }
        const QStringList text = Words::restoreSummary(result).split(u'\n');
        QCOMPARE(text.size(), 7);
        QVERIFY(text.at(5).startsWith(u"~/o4: "_s));
        QVERIFY(text.last().contains(u'4'));
    }

    // Undo takes back the last removal only, never an earlier one, then scans again.
    void undoTakesBackTheLastRemovalOnly()
    {
        auto system = std::make_shared<FakeSystem>(m_home.where());
        build(work(), {u"early"_s, u"late"_s});
        QList<CleanItem> found;
        CleanModel::Services services = CleanModel::Services::real(system);
        services.largeFiles = [&](qint64, std::function<void(qint64)>) { return found; };
        CleanModel model({CleanCategory::largeFiles}, services);
        for (const QString &name : {u"early"_s, u"late"_s}) {
            found = {item(work() + u'/' + name)};
            model.scan();
            QTRY_VERIFY(model.scanned() && !model.scanning());
            QVERIFY(!model.canUndo());
            model.setSelected(work() + u'/' + name, true);
            model.clean();
            QTRY_VERIFY(!model.scanning());
            QVERIFY(model.canUndo());
        }
        found = {};
        model.undo();
        QVERIFY(!model.canUndo());
        QTRY_VERIFY(!model.scanning() && model.message().has_value());
        QCOMPARE(system->asked().filter(u"restore "_s),
                 QStringList{u"restore "_s + work() + u"/late"_s});
        QVERIFY(QFileInfo::exists(work() + u"/late"_s));
        QVERIFY(!QFileInfo::exists(work() + u"/early"_s));
        QVERIFY(model.message().value_or(QString()).startsWith(u"Restored 1 items."_s));
    }

    // The command line end to end: clean, list, restore since the clean, the tree is back.
    void commandLine()
    {
        build(m_home.file(u"Library/Caches"_s), {u"com.a/x/y"_s, u"com.b ü/z"_s, u"com.b ü/l>z"_s});
        const QStringList before = snapshot(m_home.file(u"Library/Caches"_s));
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment(); // HOME: ours
        env.insert(u"LANG"_s, u"C.UTF-8"_s);
        const auto run = [&](const QStringList &arguments) {
            QProcess process;
            process.setProcessEnvironment(env);
            process.setStandardInputFile(QProcess::nullDevice());
            process.start(QStringLiteral(QUORVEL_CLI_PATH), arguments);
            process.waitForFinished(30'000);
            return std::pair{process.exitCode(),
                             QString::fromUtf8(process.readAllStandardOutput())};
        };
        const QString since = QDateTime::currentDateTimeUtc().toString(Qt::ISODate);
        QCOMPARE(run({u"clean"_s, u"cleanup"_s, u"--yes"_s}).first, 0);
        const QString listed = run({u"restore"_s, u"--list"_s}).second;
        QCOMPARE(listed.count(u'\n'), 2);
        QVERIFY(listed.contains(m_home.file(u"Library/Caches/com.b ü"_s)));
        const std::optional<QString> peerBefore = peerListing();
        QVERIFY(!peerBefore || peerBefore->contains(u"com.a"_s));
        QCOMPARE(run({u"restore"_s, u"--since"_s, since}).first, 2); // no terminal, no --yes
        QCOMPARE(run({u"restore"_s, m_home.file(u"nowhere"_s), u"--yes"_s}).first, 2);
        QCOMPARE(run({u"restore"_s, u"--since"_s, since, u"--yes"_s}).first, 0);
        QCOMPARE(snapshot(m_home.file(u"Library/Caches"_s)), before);
        QCOMPARE(run({u"restore"_s, u"--list"_s}).second, QString());
        const std::optional<QString> peerAfter = peerListing();
        QVERIFY(!peerAfter || !peerAfter->contains(u"com.a"_s));
        if (!peerAfter)
            QSKIP("trash-list is not installed: the peer's view was not checked");
    }
};

QTEST_GUILESS_MAIN(TestRestore)
#include "tst_restore.moc"
