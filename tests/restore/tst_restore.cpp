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
using Restorer::Move;
// What happens between listing a move and putting it back.
using Disturb = std::function<void(Move &)>;

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
    QString trash(const QString &in) const { return m_home.file(u".local/share/Trash/"_s + in); }

    // Rewrites the Trash's record of ~/work/item to name `original`.
    void record(const QString &original) const
    {
        QFile file(trash(u"info/item.trashinfo"_s));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("[Trash Info]\nPath=" + QFile::encodeName(original) + '\n');
    }

    // Cleans the given entries below ~/work as large files; every one must move.
    void clean(const QStringList &names, const System &system) const
    {
        QList<CleanItem> items;
        for (const QString &name : names)
            items.append(item(work() + u'/' + name));
        QCOMPARE(Cleaner::remove(items, system).count, names.size());
    }

    static Restorer::Outcome restoreOne(const System &system, const Move &move)
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
        QTest::addColumn<QString>("layout"); // as build() takes it, entries separated by "|"
        QTest::addColumn<QString>("taken");
        QTest::newRow("folder") << u"d/a|d/sub/bb|d/empty/"_s << u"d"_s;
        QTest::newRow("files, links, names, one name in two folders")
            << u"f|abs>/etc/passwd|dangling>no|a b/Ünï 文件|tab\tname|x/same|y/same"_s
            << u"f|abs|dangling|a b/Ünï 文件|tab\tname|x/same|y/same"_s;
        // Put back after eight others, so that the child's turn is well ahead when the
        // folder it goes into is still in the Trash.
        const QString others = u"|k0|k1|k2|k3|k4|k5|k6|k7"_s;
        QTest::newRow("nested: folder after its child")
            << u"p/q/r|p/s"_s + others << u"p/q/r|p"_s + others;
    }

    void roundTrip()
    {
        QFETCH(QString, layout);
        QFETCH(QString, taken);
        const QStringList names = taken.split(u'|');
        FakeSystem system(m_home.where());
        build(work(), layout.split(u'|'));
        const QStringList before = snapshot(work());
        clean(names, system);
        const QList<Move> moves = Restorer::restorable(system);
        QCOMPARE(moves.size(), names.size());
        // After one that names no place, each move asked twice in one go: the second finds
        // its entry gone. Every outcome in its place.
        Move nowhere = moves.first();
        nowhere.original = u"relative"_s;
        const Restorer::Result result = Restorer::restore(QList{nowhere} + moves + moves, system);
        QCOMPARE(result.count, names.size());
        for (qsizetype i = 0; i < result.items.size(); ++i)
            QCOMPARE(result.items[i].kind, i == 0              ? Kind::refused
                                           : i <= names.size() ? Kind::restored
                                                               : Kind::gone);
        QCOMPARE(snapshot(work()), before);
        QCOMPARE(QDir(trash(u"info"_s)).entryList(anyEntry), QStringList());
        const QStringList log = lines(m_home.where().removalLog());
        QCOMPARE(log.size(), 2 * names.size());
        for (const QString &line : log.mid(names.size()))
            QCOMPARE(line.section(u'\t', 1, 2), u"restored\tlargeFiles"_s);
    }

    // Each case cleans ~/work/item, then disturbs something; the item must stay in the Trash
    // (or where another tool put it) and nothing else may change.
    void refused_data()
    {
        QTest::addColumn<QString>("code");
        QTest::addColumn<Disturb>("disturb");
        const auto row = [](const char *tag, const char *code, const Disturb &disturb) {
            QTest::newRow(tag) << QString::fromLatin1(code) << disturb;
        };
        row("destination exists again", "destinationExists",
            [this](Move &) { build(work(), {u"item"_s}); });
        row("already put back by another tool", "gone",
            [this](Move &m) { QVERIFY(QFile::rename(m.trashedPath, work() + u"/elsewhere"_s)); });
        row("forged: outside any Trash", "notInTrash",
            [](Move &m) { m.trashedPath = u"/etc/passwd"_s; });
        row("forged: a .Trash-uid that is no mount's top", "notInTrash", [this](Move &m) {
            const QString fake = m_home.file(u"v/.Trash-"_s) + QString::number(::geteuid());
            QVERIFY(QDir().mkpath(fake + u"/files"_s));
            QVERIFY(QFile::rename(m.trashedPath, fake + u"/files/item"_s));
            m.trashedPath = fake + u"/files/item"_s;
        });
        row("forged: the Trash's files/ is a link", "throughLink", [this](Move &) {
            QVERIFY(QFile::rename(trash(u"files"_s), m_home.file(u"real"_s)));
            QVERIFY(QFile::link(m_home.file(u"real"_s), trash(u"files"_s)));
        });
        row("original's folder is now a link", "throughLink", [this](Move &) {
            QVERIFY(QFile::rename(work(), m_home.file(u"moved"_s)));
            QVERIFY(QFile::link(m_home.file(u"moved"_s), work()));
        });
        row("record names another place", "recordMismatch",
            [this](Move &) { record(u"/root/elsewhere"_s); });
        row("record missing", "recordMismatch",
            [this](Move &) { QVERIFY(QFile::remove(trash(u"info/item.trashinfo"_s))); });
        row("folder missing outside home", "parentMissing", [this](Move &m) {
            record(m.original = u"/quorvel-restore-%1/item"_s.arg(::getpid()));
        });
        row("original inside the Trash", "badOriginal",
            [this](Move &m) { m.original = trash(u"info/x"_s); });
        row("original not plain", "badOriginal",
            [this](Move &m) { m.original = work() + u"/../work/item"_s; });
    }

    void refused()
    {
        QFETCH(QString, code);
        QFETCH(Disturb, disturb);
        FakeSystem system(m_home.where());
        build(work(), {u"item"_s});
        clean({u"item"_s}, system);
        Move move = Restorer::restorable(system).value(0);
        QVERIFY(!move.trashedPath.isEmpty());
        disturb(move);
        const QStringList home = snapshot(m_home.path());

        const Restorer::Outcome outcome = restoreOne(system, move);
        QCOMPARE(Restorer::code(outcome), code);
        QVERIFY(!Words::reason(outcome).isEmpty());
        if (code == u"destinationExists" || code == u"gone") // listed while the Trash holds it
            QCOMPARE(Restorer::restorable(system).size(), code == u"gone" ? 0 : 1);
        QCOMPARE(snapshot(m_home.path()), home); // not even a restore line
        if (code != u"gone" && code != u"destinationExists")
            QVERIFY2(system.checkRestore(move.trashedPath, move.original, m_home.path(), true) !=
                         Platform::RestoreFailure::none,
                     "listed although it cannot go back");
    }

    // Inside the home folder a missing folder is made again, private.
    void missingFolder()
    {
        FakeSystem system(m_home.where());
        build(work(), {u"deep/er/item"_s});
        clean({u"deep/er/item"_s}, system);
        const Move move = Restorer::restorable(system).value(0);
        QVERIFY(QDir(work() + u"/deep"_s).removeRecursively());
        QCOMPARE(Restorer::code(restoreOne(system, move)), u"restored"_s);
        QCOMPARE(snapshot(work()), (QStringList{u"/deep 40700 "_s, u"/deep/er 40700 "_s,
                                                u"/deep/er/item 100600 deep/er/item"_s}));
    }

    void raceHasOneWinner()
    {
        FakeSystem system(m_home.where());
        for (int round = 0; round < 40; ++round) {
            build(work(), {u"item"_s});
            clean({u"item"_s}, system);
            const Move move = Restorer::restorable(system).value(0);
            Restorer::Outcome a, b;
            std::thread first([&] { a = restoreOne(system, move); });
            b = restoreOne(system, move);
            first.join();
            QCOMPARE(int(a.kind == Kind::restored) + int(b.kind == Kind::restored), 1);
            QVERIFY((a.kind == Kind::restored ? b.kind : a.kind) != Kind::failed);
            QCOMPARE(QDir(trash(u"files"_s)).entryList(anyEntry), QStringList());
            QVERIFY(QFile::remove(work() + u"/item"_s));
        }
    }

    void readOnlyTrash()
    {
        FakeSystem system(m_home.where());
        build(work(), {u"item"_s});
        clean({u"item"_s}, system);
        const Move move = Restorer::restorable(system).value(0);
        const QStringList before = snapshot(m_home.path());
        const bool root = ::geteuid() == 0;
        if (root) { // permission bits bind root only once it is someone else
            QCOMPARE(QProcess::execute(u"chown"_s, {u"-hR"_s, u"65534:65534"_s, m_home.path()}), 0);
            QVERIFY(::seteuid(65534) == 0);
        }
        QVERIFY(QFile::setPermissions(trash(u"files"_s), QFile::ReadOwner | QFile::ExeOwner));
        const Restorer::Outcome outcome = restoreOne(system, move);
        QVERIFY(QFile::setPermissions(trash(u"files"_s),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QVERIFY(!root || ::seteuid(0) == 0);
        QCOMPARE(Restorer::code(outcome), u"permissionDenied"_s);
        QCOMPARE(snapshot(m_home.path()), before);
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
            result.items.emplace_back().shown = u"~/o"_s + QString::number(i); // failed
            if (i == 4) // exactly five: every one shown, no "more" line
                QCOMPARE(Words::restoreSummary(result).split(u'\n').size(), 6);
        }
        const QStringList text = Words::restoreSummary(result).split(u'\n');
        QCOMPARE(text.size(), 7);
        QVERIFY(text.at(5).startsWith(u"~/o4: "_s));
        QVERIFY(text.last().endsWith(u" 4 more"_s));
    }

    // Moved, put back by another tool and moved again under the same name in the Trash: the
    // log names that entry twice, and only its newest line is listed.
    void oneEntryLoggedTwice()
    {
        FakeSystem system(m_home.where());
        build(work(), {u"item"_s});
        clean({u"item"_s}, system);
        const Move first = Restorer::restorable(system).value(0);
        QVERIFY(QFile::rename(first.trashedPath, first.original) &&
                QFile::remove(trash(u"info/item.trashinfo"_s)));
        clean({u"item"_s}, system);
        const QList<Move> listed = Restorer::restorable(system);
        QVERIFY(listed.size() == 1 && listed[0].trashedPath == first.trashedPath);
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
        const QString caches = m_home.file(u"Library/Caches"_s);
        build(caches, {u"com.a/x/y"_s, u"com.b ü/z"_s, u"com.b ü/l>z"_s});
        const QStringList before = snapshot(caches);
        const auto run = [](const QStringList &arguments) { // in the test's home
            QProcess process;
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
        QVERIFY(listed.contains(caches + u"/com.b ü"_s));
        QCOMPARE(run({u"restore"_s, u"--since"_s, since}).first, 2); // no terminal, no --yes
        QCOMPARE(run({u"restore"_s, m_home.file(u"nowhere"_s), u"--yes"_s}).first, 2);
        QCOMPARE(run({u"restore"_s, u"--since"_s, since, u"--yes"_s}).first, 0);
        QCOMPARE(snapshot(caches), before);
        QCOMPARE(run({u"restore"_s, u"--list"_s}).second, QString());
    }
};

QTEST_GUILESS_MAIN(TestRestore)
#include "tst_restore.moc"
