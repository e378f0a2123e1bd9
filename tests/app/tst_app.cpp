#include "AppHarness.h"
#include "PngProbe.h"
#include "app/SingleInstance.h"
#include "common/TestHome.h"
#include "core/system/Locations.h"

#include <QStandardPaths>
#include <QXmlStreamReader>
#include <QtTest>
#include <csignal>

using namespace Qt::StringLiterals;
using namespace AppHarness;

namespace {

const QStringList kPageShots{u"1_overview.png"_s,   u"2_cleanup.png"_s,    u"3_leftovers.png"_s,
                             u"4_largeFiles.png"_s, u"5_unusedApps.png"_s, u"7_updates.png"_s};
// Every file a run may leave.
const QStringList kAllowedOutput =
    kPageShots +
    QStringList{u"0_menubar_panel.png"_s, u"5_screen.png"_s, u"updates.txt"_s, u"leftovers.txt"_s};
// A real page has text, icons and antialiased edges; a blank or flat one has a few.
constexpr int kMinColours = 8;

// The fixture folders a run must leave exactly as they were.
QMap<QString, QString> fixtureState(const QString &home)
{
    QMap<QString, QString> state = record(home);
    state.removeIf([](const auto &entry) {
        const QString &path = entry.key();
        return !path.startsWith(u"Library"_s) && !path.startsWith(u"Downloads"_s) &&
               !path.startsWith(u".cache/pip"_s);
    });
    return state;
}

// The permission bits of a real folder; -1 for anything else.
int folderMode(const QString &path)
{
    struct stat st;
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0 || !S_ISDIR(st.st_mode))
        return -1;
    return int(st.st_mode & 07777);
}

// Sizes under 1 MB in the app's file style: whole KB, halves up.
QString kiloBytes(qint64 bytes)
{
    return QString::number((bytes + 500) / 1000) + u" KB"_s;
}

} // namespace

class AppTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void snapshot_data();
    void snapshot();
    void snapshotWithoutFolderRunsNormally();
    void singleWindowWithoutTray();
    void relaunchAfterCrash();
    void quitWhileCleanUpPageScans();
    void quitEndsScreenCleaning();
    void desktopEntry();
    void bundleProperties();
    void instanceFolder_data();
    void instanceFolder();
    void instanceLockWithoutRuntimeFolder();

private:
    // A home (which also holds the instance socket) and a temporary folder for one app run.
    struct Run
    {
        QTemporaryDir root;
        QString home() const { return root.path() + u"/home"_s; }
        QString tmp() const { return root.path() + u"/tmp"_s; }
    };
    bool startX();
    void launchUnderX(QProcess &app, const Run &run, const QStringList &arguments);

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<Xvfb> m_x;
};

void AppTest::initTestCase()
{
    m_home = std::make_unique<TestHome>();
    QVERIFY2(QFileInfo(appPath()).isExecutable(), qPrintable(appPath()));
}

void AppTest::snapshot_data()
{
    QTest::addColumn<QString>("lang");
    QTest::addColumn<QString>("waitScale"); // empty: the real waits
    QTest::addColumn<QString>("updates");
    QTest::addColumn<QString>("containerLabel");
    QTest::newRow("en") << u"C.UTF-8"_s << QString() << u"Everything is up to date.\n"_s
                        << u"Container"_s;
    QTest::newRow("zh") << u"zh_CN.UTF-8"_s << u"0.1"_s << u"所有应用都是最新版。\n"_s << u"容器"_s;
}

void AppTest::snapshot()
{
    QFETCH(QString, lang);
    QFETCH(QString, waitScale);
    QFETCH(QString, updates);
    QFETCH(QString, containerLabel);

    Run run;
    const QString home = run.home();
    QVERIFY(QDir().mkpath(run.tmp()));
    QVERIFY(writeFile(home + u"/Library/Caches/SomeTool/blob.bin"_s, 40'000));
    QVERIFY(writeFile(home + u"/Library/Caches/OtherTool/index.db"_s, 12'000));
    QVERIFY(writeFile(home + u"/Library/Logs/OldTool/run.log"_s, 9'000));
    QVERIFY(writeFile(home + u"/.cache/pip/http/wheel.bin"_s, 30'000));
    const QString leftover = home + u"/Library/Containers/com.gone.Editor"_s;
    QVERIFY(writeFile(leftover + u"/Data/state.bin"_s, 100'000));
    if (!allocateFile(home + u"/Downloads/installer.iso"_s, 600LL * 1024 * 1024))
        QSKIP("this file system cannot reserve a 600 MiB file");
    const qint64 leftoverBytes = allocatedBytes(leftover);
    QVERIFY(leftoverBytes > 0 && leftoverBytes < 999'500);
    const QMap<QString, QString> before = fixtureState(home);

    QProcessEnvironment env = childEnvironment(home, run.tmp(), lang, u"offscreen"_s);
    if (!waitScale.isEmpty())
        env.insert(u"QUORVEL_SNAPSHOT_SCALE"_s, waitScale);
    QProcess app;
    app.setProcessEnvironment(env);
    app.setWorkingDirectory(run.root.path());
    app.setProcessChannelMode(QProcess::MergedChannels);
    QElapsedTimer clock;
    clock.start();
    // Relative, with missing parents: both are the run's to resolve and create.
    app.start(appPath(), {u"--snapshot"_s, u"shots/new/run"_s});
    const bool finished = app.waitForFinished(150'000);
    if (!finished)
        app.kill();
    qInfo("snapshot run %s took %.1f s", QTest::currentDataTag(), clock.elapsed() / 1000.0);
    const QString out = run.root.path() + u"/shots/new/run"_s;

    // Keep the pictures where people can look at them, whatever the checks below say.
    keepPictures(out, buildDir() + u"/snapshots/"_s + QString::fromUtf8(QTest::currentDataTag()));

    QVERIFY2(finished, app.readAll().constData());
    QCOMPARE(app.exitStatus(), QProcess::NormalExit);
    QCOMPARE(app.exitCode(), 0);

    const QStringList written = QDir(out).entryList(QDir::Files);
    for (const QString &name : written)
        QVERIFY2(kAllowedOutput.contains(name), qPrintable(u"unexpected output "_s + name));
    const PngProbe panel = PngProbe::read(out + u"/0_menubar_panel.png"_s, kMinColours);
    QVERIFY2(panel.valid, "0_menubar_panel.png is missing or unreadable");
    QCOMPARE(panel.width, 760);
    QVERIFY(panel.height > 0);
    QVERIFY2(panel.colours >= kMinColours, "0_menubar_panel.png is blank");
    const PngProbe screen = PngProbe::read(out + u"/5_screen.png"_s, kMinColours);
    QVERIFY2(screen.valid, "5_screen.png is missing or unreadable");
    QCOMPARE(QSize(screen.width, screen.height), QSize(1440, 1240));
    QVERIFY2(screen.colours >= kMinColours, "5_screen.png is blank");
    for (const QString &name : kPageShots) {
        const PngProbe page = PngProbe::read(out + u'/' + name, kMinColours);
        QVERIFY2(page.valid, qPrintable(name + u" is missing or unreadable"_s));
        QCOMPARE(QSize(page.width, page.height), QSize(900, 620));
        QVERIFY2(page.colours >= kMinColours, qPrintable(name + u" is blank"_s));
    }

    QFile report(out + u"/updates.txt"_s);
    QVERIFY(report.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(report.readAll()), updates);
    QFile leftovers(out + u"/leftovers.txt"_s);
    QVERIFY(leftovers.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(leftovers.readAll()), u"com.gone.Editor\t"_s + containerLabel +
                                                         u" · ~/Library/Containers\t"_s +
                                                         kiloBytes(leftoverBytes));

    QCOMPARE(fixtureState(home), before);
    QVERIFY(!QFileInfo::exists(home + u"/Library/Logs/Quorvel/removals.log"_s));
    QVERIFY(QDir(home + u"/.local/share/Trash/files"_s).isEmpty());
}

void AppTest::snapshotWithoutFolderRunsNormally()
{
    Run run;
    QVERIFY(QDir().mkpath(run.tmp()));
    QVERIFY(QDir().mkpath(run.home()));
    QProcessEnvironment env = childEnvironment(run.home(), run.tmp(), u"C.UTF-8"_s, u"offscreen"_s);
    env.insert(u"QUORVEL_SNAPSHOT_SCALE"_s, u"0.01"_s);
    QProcess app;
    app.setProcessEnvironment(env);
    app.setWorkingDirectory(run.root.path());
    app.start(appPath(), {u"--snapshot"_s});
    QVERIFY(app.waitForStarted());
    // With these waits a snapshot run would be over in about a second; a normal run stays.
    QVERIFY(!app.waitForFinished(3000));
    QVERIFY(endsWithin(app, SIGTERM, 2000));
    QCOMPARE(QDir(run.root.path()).entryList(QDir::Dirs | QDir::NoDotAndDotDot),
             QStringList({u"home"_s, u"tmp"_s}));
}

bool AppTest::startX()
{
    if (!QFileInfo::exists(Xvfb::binary()) ||
        QStandardPaths::findExecutable(u"xdotool"_s).isEmpty())
        return false;
    if (!m_x) {
        m_x = std::make_unique<Xvfb>();
        if (!m_x->start())
            m_x.reset();
    }
    return m_x != nullptr;
}

void AppTest::launchUnderX(QProcess &app, const Run &run, const QStringList &arguments)
{
    QProcessEnvironment env = childEnvironment(run.home(), run.tmp(), u"C.UTF-8"_s, u"xcb"_s);
    env.insert(u"DISPLAY"_s, m_x->display());
    app.setProcessEnvironment(env);
    app.setProcessChannelMode(QProcess::MergedChannels);
    app.start(appPath(), arguments);
}

void AppTest::singleWindowWithoutTray()
{
    if (!startX())
        QSKIP("needs /usr/bin/Xvfb and xdotool");
    Run run;
    QVERIFY(QDir().mkpath(run.tmp()));
    QVERIFY(QDir().mkpath(run.home()));
    QProcess first;
    launchUnderX(first, run, {});
    QVERIFY2(toolsWindowOpens(first, m_x->display()),
             "no tray here, so the tools window should have opened");

    for (const QStringList &arguments : {QStringList{u"quorvel://tools"_s}, QStringList{}}) {
        QProcess second;
        QElapsedTimer clock;
        clock.start();
        launchUnderX(second, run, arguments);
        QVERIFY2(second.waitForFinished(2000), "a second launch must hand over and leave");
        QVERIFY(clock.elapsed() <= 2000);
        QCOMPARE(second.exitStatus(), QProcess::NormalExit);
        QVERIFY2(second.exitCode() == 0, second.readAll().constData());
    }
    QThread::msleep(500); // time for a wrongly made second window to appear
    QCOMPARE(quorvelWindows(m_x->display()), 1);
    QVERIFY(!first.waitForFinished(0));
    QVERIFY2(endsWithin(first, SIGTERM, 2000), "SIGTERM must end the app at once");
}

void AppTest::relaunchAfterCrash()
{
    if (!startX())
        QSKIP("needs /usr/bin/Xvfb and xdotool");
    Run run;
    QVERIFY(QDir().mkpath(run.tmp()));
    QVERIFY(QDir().mkpath(run.home()));
    // A killed instance leaves its lock and socket behind; they must not turn the next
    // launch into a hand-over to nobody.
    QProcess crashed;
    launchUnderX(crashed, run, {});
    QVERIFY(toolsWindowOpens(crashed, m_x->display()));
    crashed.kill();
    QVERIFY(crashed.waitForFinished(2000));
    QVERIFY(waitFor([&] { return quorvelWindows(m_x->display()) == 0; }, 5000));

    QProcess next;
    launchUnderX(next, run, {});
    QVERIFY2(toolsWindowOpens(next, m_x->display()),
             "the launch after a crash did not become the running instance");
    QProcess handOver; // and it listens where the dead one did
    launchUnderX(handOver, run, {u"quorvel://tools"_s});
    QVERIFY(handOver.waitForFinished(2000));
    QCOMPARE(handOver.exitCode(), 0);
    QVERIFY(endsWithin(next, SIGTERM, 2000));
}

void AppTest::quitWhileCleanUpPageScans()
{
    if (!startX())
        QSKIP("needs /usr/bin/Xvfb and xdotool");
    Run run;
    QVERIFY(QDir().mkpath(run.tmp()));
    // The clean-up page walks these as it appears. On a warm cache 50,000 entries take
    // about a tenth of a second, so the signal may also land just after the walk.
    QVERIFY(emptyFiles(run.home() + u"/Library/Caches/Heap"_s, 100, 500));
    QProcess app;
    launchUnderX(app, run, {u"quorvel://tools/cleanup"_s});
    QVERIFY(toolsWindowOpens(app, m_x->display()));
    QVERIFY2(endsWithin(app, SIGINT, 2000), "quitting must not wait for the scan");
}

void AppTest::quitEndsScreenCleaning()
{
    if (!startX())
        QSKIP("needs /usr/bin/Xvfb and xdotool");
    Run run;
    QVERIFY(QDir().mkpath(run.tmp()));
    QProcess app;
    launchUnderX(app, run, {u"quorvel://tools/screen"_s});
    QVERIFY(toolsWindowOpens(app, m_x->display()));
    const int before = visibleAppWindows(m_x->display());
    // Keyboard only, as a user without a pointer would: focus the window, move from the
    // sidebar to the page's one button and press it.
    QVERIFY(xdotool(m_x->display(), {u"search"_s, u"--onlyvisible"_s, u"--name"_s, u"^Quorvel$"_s,
                                     u"windowfocus"_s, u"--sync"_s}));
    QVERIFY(xdotool(m_x->display(), {u"key"_s, u"Tab"_s, u"space"_s}));
    // One black window joins per screen, and the keyboard is no longer anyone else's.
    QVERIFY2(waitFor([&] { return visibleAppWindows(m_x->display()) == before + 1; }, 5000),
             "the cleaning mode did not start");
    QVERIFY2(endsWithin(app, SIGTERM, 2000), "quitting must end the mode and the app at once");
    QVERIFY(waitFor([&] { return visibleAppWindows(m_x->display()) == 0; }, 2000));
}

void AppTest::desktopEntry()
{
    QFile file(QStringLiteral(QUORVEL_DESKTOP_FILE));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    QCOMPARE(lines.first(), u"[Desktop Entry]"_s);
    for (const QString &line : {u"Type=Application"_s, u"Name=Quorvel"_s, u"Exec=quorvel %u"_s,
                                u"Categories=System;Utility;"_s})
        QVERIFY2(lines.contains(line), qPrintable(line));
    QVERIFY(lines.contains(u"MimeType=x-scheme-handler/quorvel;"_s));
    QVERIFY(std::any_of(lines.begin(), lines.end(),
                        [](const QString &line) { return line.startsWith(u"Icon="_s); }));

    const QString validator = QStandardPaths::findExecutable(u"desktop-file-validate"_s);
    if (validator.isEmpty())
        QSKIP("desktop-file-validate is not installed");
    QProcess validate;
    validate.setProcessChannelMode(QProcess::MergedChannels);
    validate.start(validator, {file.fileName()});
    QVERIFY(validate.waitForFinished(10'000));
    const QString said = QString::fromUtf8(validate.readAll());
    QVERIFY2(validate.exitCode() == 0, qPrintable(said));
    QVERIFY2(!said.contains(u"error:"_s) && !said.contains(u"warning:"_s), qPrintable(said));
}

void AppTest::bundleProperties()
{
    QFile file(QFileInfo(QStringLiteral(QUORVEL_DESKTOP_FILE)).path() + u"/Info.plist"_s);
    QVERIFY(file.open(QIODevice::ReadOnly));
    // The plist flattened to its elements and texts, in document order.
    QStringList tokens;
    QXmlStreamReader xml(&file);
    while (!xml.atEnd()) {
        if (xml.readNext() == QXmlStreamReader::StartElement)
            tokens.append(xml.name().toString());
        else if (xml.isCharacters() && !xml.isWhitespace())
            tokens.append(xml.text().toString());
    }
    QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
    auto after = [&](const QString &key, qsizetype skip) {
        const qsizetype at = tokens.indexOf(key);
        return at >= 0 && at + skip < tokens.size() ? tokens.at(at + skip) : QString();
    };
    QCOMPARE(after(u"CFBundleIdentifier"_s, 2), u"app.quorvel.Quorvel"_s);
    QCOMPARE(after(u"CFBundleExecutable"_s, 2), u"quorvel"_s);
    QCOMPARE(after(u"LSUIElement"_s, 1), u"true"_s);
    // CFBundleURLSchemes, then <array>, <string>, "quorvel".
    QCOMPARE(after(u"CFBundleURLSchemes"_s, 3), u"quorvel"_s);
    QVERIFY(tokens.indexOf(u"CFBundleURLTypes"_s) < tokens.indexOf(u"CFBundleURLSchemes"_s));
}

// Folder kinds for the runtime folder and for `quorvel` in the cache folder.
void AppTest::instanceFolder_data()
{
    QTest::addColumn<QString>("runtime");
    QTest::addColumn<QString>("cache");
    QTest::addColumn<QString>("chosen"); // "runtime", "cache" or "none"
    const auto row = [](const char *name, const char *runtime, const char *cache,
                        const char *chosen) {
        QTest::newRow(name) << QString::fromLatin1(runtime) << QString::fromLatin1(cache)
                            << QString::fromLatin1(chosen);
    };
    row("private runtime folder", "0700", "missing", "runtime");
    row("runtime of ours, readable by others", "0755", "missing", "runtime");
    row("no runtime folder: cache folder made", "unset", "missing", "cache");
    row("relative runtime path", "relative", "missing", "cache");
    row("runtime path missing", "missing", "missing", "cache");
    row("group-writable runtime", "0770", "missing", "cache");
    row("shared like /tmp", "1777", "missing", "cache");
    row("runtime is a link", "link", "missing", "cache");
    row("runtime owned by someone else", "foreign", "missing", "cache");
    row("open cache folder is narrowed", "unset", "0755", "cache");
    row("cache folder is a link", "unset", "link", "none");
    row("cache folder owned by someone else", "unset", "foreign", "none");
    row("cache folder is a file", "unset", "file", "none");
    row("no cache folder either", "unset", "unset", "none");
}

void AppTest::instanceFolder()
{
    QFETCH(QString, runtime);
    QFETCH(QString, cache);
    QFETCH(QString, chosen);
    QTemporaryDir root;
    const QString base = root.path();
    // Where the links point: a folder of ours that would pass as the runtime folder, and be
    // narrowed as the cache folder, if a link were followed.
    const QString elsewhere = base + u"/elsewhere"_s;
    QVERIFY(::mkdir(QFile::encodeName(elsewhere).constData(), 0755) == 0);
    const auto make = [&](const QString &kind, const QString &path) -> QString {
        const QByteArray native = QFile::encodeName(path);
        bool ok = true;
        if (kind == u"unset")
            return {};
        if (kind == u"relative")
            return u"run/user"_s;
        if (kind == u"link")
            ok = ::symlink(QFile::encodeName(elsewhere).constData(), native.constData()) == 0;
        else if (kind == u"file")
            ok = writeFile(path, 1);
        else if (kind == u"foreign" && ::geteuid() != 0)
            return u"/"_s; // the root folder is someone else's
        else if (kind == u"foreign")
            ok = ::mkdir(native.constData(), 0700) == 0 &&
                 ::chown(native.constData(), 65534, 65534) == 0;
        else if (kind != u"missing")
            ok = ::mkdir(native.constData(), 0) == 0 &&
                 ::chmod(native.constData(), mode_t(kind.toUInt(nullptr, 8))) == 0;
        return ok ? path : u"failed"_s;
    };
    if (cache == u"foreign" && ::geteuid() != 0)
        QSKIP("only root can give a folder to someone else");
    const QString runtimeDir = make(runtime, base + u"/runtime"_s);
    QVERIFY(QDir().mkpath(base + u"/cache"_s));
    const QString cacheDir = cache == u"unset" ? QString() : base + u"/cache"_s;
    QVERIFY(make(cache, base + u"/cache/quorvel"_s) != u"failed");
    QVERIFY(runtimeDir != u"failed");

    const std::optional<QString> folder = SingleInstance::privateFolder(runtimeDir, cacheDir);
    if (chosen == u"none") {
        QCOMPARE(folder, std::nullopt);
    } else if (chosen == u"runtime") {
        QCOMPARE(folder, std::optional(runtimeDir));
        QVERIFY(!QFileInfo::exists(base + u"/cache/quorvel"_s));
    } else {
        QCOMPARE(folder, std::optional(base + u"/cache/quorvel"_s));
        QCOMPARE(folderMode(*folder), 0700);
    }
    QCOMPARE(folderMode(elsewhere), 0755); // nothing is changed through a link
}

// The app's own choice, as it starts without $XDG_RUNTIME_DIR: the lock lands in the home
// folder's cache, in a folder only we can enter.
void AppTest::instanceLockWithoutRuntimeFolder()
{
    qunsetenv("XDG_RUNTIME_DIR");
    const QString cache = Platform::cacheFolder(Locations::fromEnvironment().userFolders());
    SingleInstance first([](const QString &) {}, cache);
    SingleInstance second([](const QString &) {}, cache);
    const std::optional<QString> path = first.socketPath();
#ifdef Q_OS_MACOS
    QVERIFY(QDir().mkpath(m_home->file(u"Library/Caches"_s))); // there in every real home
    const QString folder = m_home->file(u"Library/Caches/quorvel"_s);
#else
    const QString folder = m_home->file(u".cache/quorvel"_s);
#endif
    QCOMPARE(path,
             std::optional(folder + u"/quorvel-"_s + QString::number(::getuid()) + u".socket"_s));
    QVERIFY(first.claim());
    QVERIFY(QFileInfo::exists(*path + u".lock"_s));
    QVERIFY2(!second.claim(), "the lock in the cache folder must keep a second instance out");
    QCOMPARE(folderMode(folder), 0700);
    first.release();
}

QTEST_GUILESS_MAIN(AppTest)
#include "tst_app.moc"
