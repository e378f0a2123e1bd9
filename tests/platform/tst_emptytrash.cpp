#include "platform/TrashFixture.h"

// Emptying the Trash: only what was counted goes, never anything outside it.
class EmptyTrashTest final : public QObject, protected TrashFixture
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { setUp(); } // built for Linux only: elsewhere the Trash is the user's
    void init() { reset(); }
    void cleanup() { tidy(); }

    void emptyingRemovesTheTrashOnly_data()
    {
        QTest::addColumn<QString>("dataHome");
        QTest::addColumn<QStringList>("layout");  // below the home; "a>b" links a to b, "~" home
        QTest::addColumn<QStringList>("trashed"); // below files/, each with its record
        QTest::addColumn<QStringList>("modes");   // "path=octal" below the Trash, in this order
        QTest::addColumn<int>("remaining");
        const auto row = [](const char *name, const QStringList &layout, const QStringList &trashed,
                            const QStringList &modes = {}, int remaining = 0,
                            const QString &dataHome = {}) {
            QTest::newRow(name) << dataHome << layout << trashed << modes << remaining;
        };
        // A Trash never created is already empty; one leading out of its place is refused.
        const QString t = u".local/share/Trash/"_s;
        row("never created", {u"data/"_s}, {}, {}, 0, u"data"_s);
        row("no files folder", {t + u"info/old.trashinfo"_s}, {});
        row("a file where a folder belongs", {u".local"_s}, {});
        row("files links elsewhere",
            {u"e/a.txt"_s, t + u"info/a.txt.trashinfo"_s, t + u"files>~/e"_s}, {}, {}, 1);
        row("info links elsewhere",
            {t + u"files/a.txt"_s, t + u"files/b/"_s, u"e/a.txt.trashinfo"_s, u"e/b.trashinfo"_s,
             t + u"info>~/e"_s},
            {}, {}, 2);
        row("Trash leads out of the data home",
            {u"o/Trash/files/a.txt"_s, u"o/Trash/info/a.txt.trashinfo"_s,
             u"data/Trash>~/o/Trash"_s},
            {}, {}, 1, u"data"_s);
        row("Trash is the home", {u"work/w.txt"_s, u".local/share/Trash>~"_s}, {}, {}, 1);
        // What is in it goes with its record, whatever its name, shape or rights.
        row("files, folders, hidden and Chinese names, XDG_DATA_HOME", {},
            {u".bashrc"_s, u"报告 2024.txt"_s, u"empty/"_s, u".config/.sub/.x"_s,
             u"tree/a/b/c.txt"_s, u"tree/a/b2/"_s, u"tree/top.txt"_s},
            {}, 0, u"data"_s);
        row("links, removed and never followed", {},
            {u"file>~/outside/target.txt"_s, u"relative>../../../../outside/folder"_s,
             u"slash>~/outside/folder/"_s, u"box/in>~/outside/folder"_s, u"box/deep/home>~"_s,
             u"dangling>~/outside/missing"_s});
        // Run unprivileged: permission bits do not stop root.
        row("read-only, unreadable and search-only trees", {},
            {u"box/a.txt"_s, u"box/secret/s.txt"_s, u"tree/x/y/z.txt"_s, u"ro/r.txt"_s},
            {u"files/box/secret=0"_s, u"files/box=500"_s, u"files/tree/x/y=555"_s,
             u"files/tree/x=100"_s, u"files/tree=555"_s, u"files/ro/r.txt=444"_s,
             u"files/ro=500"_s});
        row("read-only files and info folders", {}, {u"a.txt"_s, u"box/b"_s},
            {u"files=500"_s, u"info=500"_s});
        row("deeper than PATH_MAX", {}, {u"deep/"_s}, {u"files=700"_s}); // a mode: unprivileged
    }

    // Nothing outside the Trash changes, whatever leads where.
    void emptyingRemovesTheTrashOnly()
    {
        QFETCH(QString, dataHome);
        QFETCH(QStringList, layout);
        QFETCH(QStringList, trashed);
        QFETCH(QStringList, modes);
        QFETCH(int, remaining);
        if (!dataHome.isEmpty())
            qputenv("XDG_DATA_HOME", native(home(dataHome)));
        // A link followed would change this read-only folder, its mode at least.
        build(home(u"outside"_s), {u"target.txt"_s, u"folder/sub/b.txt"_s});
        QVERIFY(::chmod(native(home(u"outside/folder/sub"_s)).constData(), 0500) == 0);
        build(m_home.path(), layout);
        if (!trashed.isEmpty()) {
            build(files(), trashed);
            for (const QString &name : entries(files()))
                build(info(), {name + u".trashinfo"_s});
            build(trash(), {u"info/orphan.trashinfo"_s, u"unrelated.txt"_s});
        }
        const QString inside = trashed.isEmpty() ? QString() : trash();
        const QStringList before = snapshot(m_home.path(), inside);
        const auto confirmed = counted(); // before a slow set-up can age the fresh record
        for (const QString &entry : modes)
            QVERIFY(!::chmod(native(trash() + u'/' + entry.section(u'=', 0, 0)).constData(),
                             entry.section(u'=', 1).toUInt(nullptr, 8)));
        if (!modes.isEmpty() && !dropRoot())
            QSKIP("cannot hand the home to an unprivileged user");
        QVERIFY(!trashed.contains(u"deep/"_s) || buildDeep(files() + u"/deep"_s));
        const qsizetype open = entries(u"/proc/self/fd"_s).size();
        const Platform::TrashEmptying result = Platform::emptyTrash(confirmed, user());

        QCOMPARE(entries(u"/proc/self/fd"_s).size(), open);
        QCOMPARE(result.remaining, remaining);
        QCOMPARE(result.emptied, remaining == 0);
        QCOMPARE(snapshot(m_home.path(), inside), before);
        if (trashed.isEmpty())
            return;
        // A fresh record without its item may belong to a move on its way in.
        QCOMPARE(entries(files()) + entries(info()) + entries(trash()),
                 (QStringList{u"orphan.trashinfo"_s, u"files"_s, u"info"_s, u"unrelated.txt"_s}));
    }

    // A restore racing the emptying either wins, and gets the whole folder back, or loses, and
    // finds it gone; it never finds its folder emptied at its new place.
    void restoreRacingTheEmptying()
    {
        QStringList layout;
        for (int i = 0; i < 400; ++i)
            layout << u"box/d%1/f"_s.arg(i % 20) + QString::number(i);
        const QDeadlineTimer deadline(5000);
        for (int round = 0; round < 10 && !deadline.hasExpired(); ++round) {
            trashLayout(layout);
            const std::optional<Platform::TrashContents> confirmed = counted();
            const QString restored = home(u"restored%1"_s.arg(round));
            std::atomic<bool> started{false};
            std::thread emptying([&] {
                started = true;
                Platform::emptyTrash(confirmed, user());
            });
            while (!started)
                std::this_thread::yield();
            for (int spin = 0; spin < round * 200; ++spin)
                std::this_thread::yield();
            const bool won = ::rename(native(files() + u"/box"_s).constData(),
                                      native(restored).constData()) == 0;
            emptying.join();
            QCOMPARE(snapshot(restored).size(), won ? 20 + 400 : 0);
            QCOMPARE(entries(files()), QStringList());
        }
    }

    // Only what was counted goes, and only what could go: what is restored, replaced or
    // arrives after the count stays, and so does what resists.
    void emptyingTakesOnlyWhatWasCounted_data()
    {
        QTest::addColumn<QStringList>("layout");
        QTest::addColumn<QString>("change");    // between counting and emptying: "restored", …
        QTest::addColumn<QStringList>("stuck"); // "+i:" immutable, "mount:" the outside bound in
        QTest::addColumn<QStringList>("survivors"); // below files/; the rest must go
        const auto row = [](const char *name, const QStringList &layout, const QStringList &stuck,
                            const QStringList &survivors, const QString &change = {}) {
            QTest::newRow(name) << layout << change << stuck << survivors;
        };
        const QStringList box{u"box/a.txt"_s, u"box/sub/b.txt"_s, u"gone.txt"_s};
        row("restored", box, {}, {}, u"restored"_s);
        row("replaced under the same name", box, {}, {u"box"_s, u"box/new.txt"_s}, u"replaced"_s);
        row("arrived", box, {}, {u"late.txt"_s}, u"arrived"_s);
        row("immutable files and folder",
            {u"box/a.txt"_s, u"box/sub/stuck.txt"_s, u"box/sub/b.txt"_s, u"one.txt"_s, u"two/f"_s,
             u"three.txt"_s, u"four/"_s},
            {u"+i:box/sub/stuck.txt"_s, u"+i:one.txt"_s, u"+i:two"_s},
            {u"box"_s, u"box/sub"_s, u"box/sub/stuck.txt"_s, u"one.txt"_s, u"two"_s, u"two/f"_s});
        // Past the folders held open the way up reopens them; what stayed is not entered again.
        QStringList chain{u"box"_s};
        for (int level = 0; level < 40; ++level)
            chain << chain.last() + u"/d"_s;
        const QString stuck = chain.last() + u"/stuck.txt"_s;
        row("immutable file below the held folders",
            {stuck, u"box/free.txt"_s, chain.at(20) + u"/free.txt"_s}, {u"+i:"_s + stuck},
            chain + QStringList{stuck});
        // What is mounted inside is not the Trash's: it stays, and so does what holds it.
        row("mounts as an entry and inside a folder",
            {u"mnt/"_s, u"box/mnt/"_s, u"box/free.txt"_s, u"other.txt"_s},
            {u"mount:mnt"_s, u"mount:box/mnt"_s}, {u"mnt"_s, u"box"_s, u"box/mnt"_s});
    }

    void emptyingTakesOnlyWhatWasCounted()
    {
        QFETCH(QStringList, layout);
        QFETCH(QString, change);
        QFETCH(QStringList, stuck);
        QFETCH(QStringList, survivors);
        trashLayout(layout);
        build(home(u"outside"_s), {u"a.txt"_s, u"sub/b.txt"_s});
        const QStringList outside = snapshot(home(u"outside"_s));
        for (const QString &entry : stuck) {
            const QString path = files() + u'/' + entry.section(u':', 1);
            const bool mount = entry.startsWith(u"mount:");
            if (QProcess::execute(mount ? u"mount"_s : u"chattr"_s,
                                  mount ? QStringList{u"--bind"_s, home(u"outside"_s), path}
                                        : QStringList{u"+i"_s, path}) != 0)
                QSKIP("bind mounts and chattr +i need root and a file system that has them");
            m_undo << (mount ? QStringList{u"umount"_s, path}
                             : QStringList{u"chattr"_s, u"-i"_s, path});
        }
        // A record without its item since well before the count goes; a fresh one stays.
        build(info(), {u"stale.trashinfo"_s, u"fresh.trashinfo"_s});
        const timespec old[2] = {{0, UTIME_OMIT}, {::time(nullptr) - 3600, 0}};
        QVERIFY(!::utimensat(AT_FDCWD, native(info() + u"/stale.trashinfo"_s).constData(), old, 0));
        const std::optional<Platform::TrashContents> confirmed = counted();
        const QString box = files() + u"/box"_s, restored = home(u"restored"_s);
        if (change == u"restored" || change == u"replaced")
            QVERIFY(::rename(native(box).constData(), native(restored).constData()) == 0 &&
                    QFile::remove(info() + u"/box.trashinfo"_s));
        if (change == u"replaced")
            trashLayout({u"box/new.txt"_s});
        if (change == u"arrived")
            trashLayout({u"late.txt"_s});
        const QStringList restoredTree = snapshot(restored);
        QStringList top = survivors.filter(QRegularExpression(u"^[^/]+$"_s)), infos = top;
        top.sort();
        const int kept = stuck.isEmpty() ? int(top.size()) : 0; // left as they came after
        (infos << u"fresh"_s).replaceInStrings(QRegularExpression(u"$"_s), u".trashinfo"_s).sort();
        QVERIFY(QDir().mkpath(trash() + u"/expunged"_s)); // left by an emptying cut short
        const Platform::TrashEmptying result = Platform::emptyTrash(confirmed, user());
        QCOMPARE(result.remaining, int(top.size()) - kept);
        QCOMPARE(result.kept, kept);
        QCOMPARE(entries(files()), top);
        QCOMPARE(entries(info()), infos);
        for (QString path : layout + survivors) {
            path.chop(path.endsWith(u'/') ? 1 : 0);
            QVERIFY2(survivors.contains(path) == (modeOf(files() + u'/' + path) >= 0),
                     qPrintable(path));
        }
        QCOMPARE(snapshot(home(u"outside"_s)), outside);
        QCOMPARE(snapshot(restored), restoredTree);
    }
};

QTEST_GUILESS_MAIN(EmptyTrashTest)
#include "tst_emptytrash.moc"
