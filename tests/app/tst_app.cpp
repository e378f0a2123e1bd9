#include "app/SingleInstance.h"
#include "common/TestHome.h"
#include "common/Xvfb.h"

#include <QtTest> // and QtCore
#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using AppHarness::waitFor;

namespace {

const QString kApp = QStringLiteral(QUORVEL_APP_PATH);

// Starts the app seeing only `root`: its HOME (whose cache holds the instance socket) below,
// TMPDIR and working folder; no XDG_* variables, no session bus (so no tray), an App Store that
// refuses at once and snapshot waits cut to a twentieth. On X `display`, else offscreen.
void launch(QProcess &app, const QString &root, const QString &arguments,
            const QString &display = {})
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const QString &key : env.keys()) {
        if (key.startsWith(u"XDG_"_s) || key.startsWith(u"LC_"_s) || key.startsWith(u"QT_"_s) ||
            key.startsWith(u"QUORVEL_"_s) || key == u"LANGUAGE" || key.endsWith(u"DISPLAY"_s))
            env.remove(key);
    }
    QDir().mkpath(root + u"/home"_s);
    env.insert(u"HOME"_s, root + u"/home"_s);
    env.insert(u"TMPDIR"_s, root);
    env.insert(u"LANG"_s, u"C.UTF-8"_s);
    env.insert(u"QT_QPA_PLATFORM"_s, display.isEmpty() ? u"offscreen"_s : u"xcb"_s);
    env.insert(u"DISPLAY"_s, display);
    env.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, u"unix:path="_s + root + u"/no-bus"_s);
    env.insert(u"QUORVEL_APP_STORE_URL"_s, u"http://127.0.0.1:9"_s);
    env.insert(u"QUORVEL_SNAPSHOT_SCALE"_s, u"0.05"_s);
    app.setProcessEnvironment(env);
    app.setWorkingDirectory(root);
    app.setProcessChannelMode(QProcess::MergedChannels);
    app.start(kApp, arguments.split(u' ', Qt::SkipEmptyParts));
}

QString readText(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

bool writeFile(const QString &path, qint64 bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(QByteArray(bytes, 'q')) == bytes;
}

// Not blank: a flat fill of any of these sizes compresses to under 10 KB, while text, icons
// and antialiased edges take tens of KB. Without Qt Gui, not linked here.
bool drawnPng(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.read(8) == "\x89PNG\r\n\x1a\n" &&
           file.size() > 16'000;
}

// The permission bits of a real folder; -1 for anything else.
int folderMode(const QString &path)
{
    struct stat st;
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0 || !S_ISDIR(st.st_mode))
        return -1;
    return int(st.st_mode & 07777);
}

// Ends `app` with `signal`: true when it left normally within two seconds.
bool endsAtOnce(QProcess &app, int signal)
{
    ::kill(pid_t(app.processId()), signal);
    return app.waitForFinished(2000) && app.exitStatus() == QProcess::NormalExit &&
           app.exitCode() == 0;
}

} // namespace

class AppTest : public QObject
{
    Q_OBJECT
    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<AppHarness::Xvfb> m_x;

    bool startX()
    {
        if (!m_x && QFileInfo::exists(AppHarness::Xvfb::binary()) &&
            !QStandardPaths::findExecutable(u"xdotool"_s).isEmpty() &&
            !(m_x = std::make_unique<AppHarness::Xvfb>())->start())
            m_x.reset();
        return m_x != nullptr;
    }
    // Runs xdotool on our display; its standard output, or nullopt when it failed.
    std::optional<QString> xdotool(const QString &arguments)
    {
        QProcess tool;
        tool.start(u"env"_s, QStringList{u"DISPLAY="_s + m_x->display(), u"xdotool"_s} +
                                 arguments.split(u' '));
        if (!tool.waitForFinished(5000) || tool.exitCode() != 0)
            return std::nullopt;
        return QString::fromUtf8(tool.readAllStandardOutput());
    }
    // Visible tools windows (by title), or any of the app's (the overlay has no title).
    int windows(bool anyTitle = false)
    {
        return int(xdotool(anyTitle ? u"search --onlyvisible --classname ^quorvel$"_s
                                    : u"search --onlyvisible --name ^Quorvel$"_s)
                       .value_or(QString())
                       .count(u'\n')); // one line per window
    }
    // One visible tools window; an app that ends meanwhile fails at once, with what it said.
    bool toolsWindowOpens(QProcess &app)
    {
        const bool open = waitFor([&] { return app.waitForFinished(0) || windows() == 1; }, 15'000);
        if (app.state() == QProcess::NotRunning)
            qWarning("the app ended early: %s", app.readAll().constData());
        return open && app.state() == QProcess::Running;
    }

private Q_SLOTS:
    void initTestCase() { m_home = std::make_unique<TestHome>(); }

    // The snapshot run, in English with its waits cut to a twentieth: every page is drawn,
    // both reports are written, and nothing of the user's is touched.
    void snapshot()
    {
        QTemporaryDir run;
        const QString home = run.path() + u"/home"_s;
        const QMap<QString, qint64> fixture{{u"/Library/Caches/SomeTool/blob.bin"_s, 40'000},
                                            {u"/Library/Logs/OldTool/run.log"_s, 9'000},
                                            {u"/Library/Containers/com.gone.Editor/x.bin"_s, 1000}};
        for (const auto &[path, bytes] : fixture.asKeyValueRange())
            QVERIFY(writeFile(home + path, bytes));

        QProcess app;
        // Relative, with missing parents: both are the run's to resolve and create.
        launch(app, run.path(), u"--snapshot shots/new"_s);
        const bool finished = app.waitForFinished(60'000);
        const QDir out(run.path() + u"/shots/new"_s);
        const QStringList pictures = out.entryList({u"*.png"_s});
        const QString kept = QDir::cleanPath(kApp + u"/../../../snapshots/en"_s);
        QDir(kept).removeRecursively(); // left for people to look at, whatever the checks say
        QDir().mkpath(kept);
        for (const QString &name : pictures)
            QFile::copy(out.filePath(name), kept + u'/' + name);

        QVERIFY2(finished && app.exitCode() == 0, app.readAll().constData());
        QCOMPARE(pictures,
                 u"0_menubar_panel.png 1_overview.png 2_cleanup.png 3_leftovers.png "
                 u"4_largeFiles.png 5_screen.png 5_unusedApps.png 7_updates.png"_s.split(u' '));
        for (const QString &name : pictures)
            QVERIFY2(drawnPng(out.filePath(name)), qPrintable(name + u" is blank"_s));
        QCOMPARE(readText(out.filePath(u"updates.txt"_s)), u"Everything is up to date.\n"_s);
        QVERIFY(readText(out.filePath(u"leftovers.txt"_s))
                    .contains(QRegularExpression(
                        u"^com\\.gone\\.Editor\tContainer · ~/Library/Containers\t\\d+ KB$"_s)));
        for (const auto &[path, bytes] : fixture.asKeyValueRange())
            QCOMPARE(QFileInfo(home + path).size(), bytes);
        QVERIFY(!QFileInfo::exists(home + u"/Library/Logs/Quorvel"_s)); // nothing was moved
    }

    // No tray here, so the tools window opens at launch. A killed instance leaves its lock
    // and socket behind; the next launch must take over, and later ones hand over to it.
    void singleInstance()
    {
        if (!startX())
            QSKIP("needs /usr/bin/Xvfb and xdotool");
        QTemporaryDir root;
        QProcess crashed;
        launch(crashed, root.path(), {}, m_x->display());
        QVERIFY2(toolsWindowOpens(crashed), "without a tray the tools window should open");
        crashed.kill();
        QVERIFY(crashed.waitForFinished(2000));
        QVERIFY(waitFor([&] { return windows() == 0; }, 5000));

        QProcess first;
        launch(first, root.path(), {}, m_x->display());
        QVERIFY2(toolsWindowOpens(first), "the launch after a crash did not take over");
        // Without $XDG_RUNTIME_DIR the lock is in the home's cache, in a folder only we enter.
        const QString folder = root.path() + u"/home/.cache/quorvel"_s;
        QVERIFY(QFileInfo::exists(folder + u"/quorvel-%1.socket.lock"_s.arg(::getuid())));
        QCOMPARE(folderMode(folder), 0700);
        // "--snapshot" without its folder is an ordinary launch, so it hands over too.
        for (const QString &arguments : {u"quorvel://tools"_s, u""_s, u"--snapshot"_s}) {
            QProcess second;
            launch(second, root.path(), arguments, m_x->display());
            QVERIFY2(second.waitForFinished(2000), "a second launch must hand over and leave");
            QVERIFY2(second.exitCode() == 0, second.readAll().constData());
        }
        QThread::msleep(500); // time for a wrongly made second window to appear
        QCOMPARE(windows(), 1);
        QVERIFY2(endsAtOnce(first, SIGTERM), "SIGTERM must end the app at once");
    }

    // Quitting waits neither for a scan nor for the cleaning mode, and ends the mode first.
    void quitting()
    {
        if (!startX())
            QSKIP("needs /usr/bin/Xvfb and xdotool");
        // The clean-up page walks these as it appears, though on a warm cache the walk may be
        // over first. In memory where possible: on disk, making them can take half a minute.
        QTemporaryDir root(QFileInfo(u"/dev/shm"_s).isWritable() ? u"/dev/shm/tst_app-XXXXXX"_s
                                                                 : QDir::tempPath() + u"/XXXXXX"_s);
        const QString heap = root.path() + u"/home/Library/Caches/Heap/"_s;
        QVERIFY(QDir().mkpath(heap));
        for (int file = 0; file < 50'000; ++file)
            ::close(::creat(QFile::encodeName(heap + QString::number(file)), 0644));
        QProcess app;
        launch(app, root.path(), u"quorvel://tools/cleanup"_s, m_x->display());
        QVERIFY(toolsWindowOpens(app));
        QProcess screenPage; // routed by the running app; its one button starts the mode
        launch(screenPage, root.path(), u"quorvel://tools/screen"_s, m_x->display());
        QVERIFY(screenPage.waitForFinished(2000));
        const int before = windows(true);
        QVERIFY(xdotool(u"search --onlyvisible --name ^Quorvel$ windowfocus --sync"_s));
        QVERIFY(xdotool(u"key Tab space"_s));
        QVERIFY2(waitFor([&] { return windows(true) == before + 1; }, 5000), // one per screen
                 "the cleaning mode did not start");
        QVERIFY2(endsAtOnce(app, SIGINT), "quitting must end the mode and the app at once");
        QVERIFY(waitFor([&] { return windows(true) == 0; }, 2000));
    }

    // The private folder for the lock and socket, by the kinds of the runtime folder and of
    // `quorvel` in the cache folder: which one is chosen.
    void instanceFolder_data()
    {
        // "runtime cache chosen"; a kind is a mode, missing, unset, relative, a link, foreign
        // (someone else's) or a file.
        QTest::addColumn<QString>("kinds");
        for (const char *kinds :
             {"0700 missing runtime", "0755 missing runtime", "unset missing cache",
              "relative missing cache", "missing missing cache", "0770 missing cache",
              "1777 missing cache", "link missing cache", "foreign missing cache",
              "unset 0755 cache", "unset link none", "unset foreign none", "unset file none",
              "unset unset none"})
            QTest::newRow(kinds) << QString::fromLatin1(kinds);
    }

    void instanceFolder()
    {
        QFETCH(QString, kinds);
        const QStringList kind = kinds.split(u' ');
        const QString &runtime = kind[0], &cache = kind[1], &chosen = kind[2];
        if (cache == u"foreign" && ::geteuid() != 0)
            QSKIP("only root can give a folder to someone else");
        QTemporaryDir root;
        const QString base = root.path();
        // Where links point: a folder of ours that would pass as the runtime folder, and be
        // narrowed as the cache folder, if a link were followed.
        const QString elsewhere = base + u"/elsewhere"_s;
        QVERIFY(::mkdir(QFile::encodeName(elsewhere).constData(), 0755) == 0);
        const auto make = [&](const QString &kind, const QString &path) -> QString {
            const QByteArray native = QFile::encodeName(path);
            if (kind == u"unset" || kind == u"relative")
                return kind == u"relative" ? u"run/user"_s : QString();
            if (kind == u"foreign" && ::geteuid() != 0)
                return u"/"_s; // the root folder is someone else's
            const bool ok =
                kind == u"missing" ||
                (kind == u"link"   ? ::symlink(QFile::encodeName(elsewhere), native) == 0
                 : kind == u"file" ? writeFile(path, 1)
                 : kind == u"foreign"
                     ? ::mkdir(native, 0700) == 0 && ::chown(native, 65534, 65534) == 0
                     : ::mkdir(native, 0) == 0 && ::chmod(native, kind.toUInt(nullptr, 8)) == 0);
            return ok ? path : u"failed"_s;
        };
        const QString runtimeDir = make(runtime, base + u"/runtime"_s);
        QVERIFY(QDir().mkpath(base + u"/cache"_s));
        QVERIFY(make(cache, base + u"/cache/quorvel"_s) != u"failed" && runtimeDir != u"failed");

        const QString cacheDir = cache == u"unset" ? QString() : base + u"/cache"_s;
        const QString cached = base + u"/cache/quorvel"_s;
        QCOMPARE(SingleInstance::privateFolder(runtimeDir, cacheDir),
                 chosen == u"runtime" ? std::optional(runtimeDir)
                 : chosen == u"cache" ? std::optional(cached)
                                      : std::nullopt);
        if (chosen != u"none") // made, and made private, only when it is the one used
            QCOMPARE(folderMode(cached), chosen == u"cache" ? 0700 : -1);
        QCOMPARE(folderMode(elsewhere), 0755); // nothing is changed through a link
    }
};

QTEST_GUILESS_MAIN(AppTest)
#include "tst_app.moc"
