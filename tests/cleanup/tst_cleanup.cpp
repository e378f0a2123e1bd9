#include "cleanup/FileTree.h"
#include "common/TestHome.h"
#include "support/FakeSystem.h"

#include "core/AppIdentity.h"
#include "core/cleanup/CleanScanners.h"
#include "core/cleanup/Cleaner.h"
#include "core/cleanup/LeftoverRules.h"
#include "core/plist/PlistReader.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/text/PathText.h"
#include "core/words/CleanupWords.h"
#include "platform/DateText.h"
#include "platform/FileTimes.h"

#include <atomic>
#include <thread>

using namespace Qt::StringLiterals;
using namespace FileTree;
using Cat = CleanCategory;

namespace {

const QDateTime kNow(QDate(2025, 6, 1), QTime(12, 0), Qt::UTC);
QDateTime daysAgo(qint64 days, qint64 seconds = 0)
{
    return kNow.addSecs(-days * 86400 - seconds);
}
QStringList titles(const QList<CleanItem> &items)
{
    QStringList titles;
    for (const CleanItem &item : items)
        titles.append(item.title);
    return titles;
}

} // namespace

class CleanupTest : public QObject
{
    Q_OBJECT

    QString at(const QString &relative) const { return m_home->file(relative); }
    CleanItem item(const QString &path, Cat category, qint64 bytes = 1'500'000) const
    {
        const QString full = path.startsWith(u'/') ? path : at(path);
        return {full, PathText::lastComponent(path), {}, bytes, category, CleanMethod::delete_};
    }
    // The machine under the temporary home, with its own Trash; Spotlight's date for an
    // application comes from m_spotlight, by the bundle's name.
    FakeSystem &machine()
    {
        m_system = std::make_unique<FakeSystem>(m_home->where());
        m_system->clock = kNow;
        m_system->lastUsed = [this](const QString &bundle) {
            const QDateTime date = m_spotlight.value(PathText::lastComponent(bundle));
            return date.isValid() ? std::optional(date) : std::nullopt;
        };
        return *m_system;
    }
    // A bundle whose executable was last read at `accessed` (invalid: it has none) and
    // which Spotlight last saw opened at `spotlight` (invalid: unknown). Its allocated size.
    qint64 makeApp(const QString &bundle, const QString &id, const QDateTime &accessed,
                   const QDateTime &spotlight = {}, qint64 exeBytes = 5000)
    {
        QVariantMap info{{u"CFBundleExecutable"_s, u"Run"_s}};
        if (!id.isEmpty())
            info.insert(u"CFBundleIdentifier"_s, id);
        qint64 bytes = write(bundle + u"/Contents/Info.plist"_s, plist(info, true));
        if (accessed.isValid()) {
            const QByteArray exe = QFile::encodeName(bundle + u"/Contents/MacOS/Run"_s);
            bytes += write(exe, QByteArray(exeBytes, 'x'));
            const timespec times[2] = {{time_t(accessed.toSecsSinceEpoch()), 0}, {0, UTIME_OMIT}};
            if (::utimensat(AT_FDCWD, exe, times, 0) != 0)
                return -1;
        }
        m_spotlight.insert(PathText::lastComponent(bundle), spotlight);
        return bytes;
    }

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<FakeSystem> m_system;
    QHash<QString, QDateTime> m_spotlight;

private Q_SLOTS:
    void initTestCase() { m_home = std::make_unique<TestHome>(); }
    void init()
    {
        clear(m_home->path());
        m_spotlight.clear();
        L10n::overrideForTesting(false);
    }

    void guard_data()
    {
        QTest::addColumn<QString>("path"); // below home unless absolute
        QTest::addColumn<int>("category");
        QTest::addColumn<QString>("refusal");
        QTest::addColumn<QByteArray>("info"); // an application's Info.plist; null: none
        const auto row = [](const char *path, Cat category, const char *refusal,
                            const QByteArray &info = {}) {
            QTest::addRow("%s %s", path, qPrintable(rawValue(category)))
                << QString::fromUtf8(path) << int(category) << QString::fromLatin1(refusal) << info;
        };
        row("Library/Caches/", Cat::userCache, "notCleanable");
        row("../other/Library/Caches/x", Cat::userCache, "outsideHome");
        row("", Cat::largeFiles, "outsideHome");
        row("Library/", Cat::leftovers, "insideLibrary");
        row("Library/Caches/x", Cat::largeFiles, "insideLibrary");
        row("Library/Keychains/login.keychain-db", Cat::leftovers, "protectedLocation");
        row("Library/Developer/CoreSimulator/Devices", Cat::developer, "protectedLocation");
        row("Library/Group Containers/group.com.apple/x", Cat::leftovers, "protectedLocation");
        row("Library/Group Containers/group.com.apple.notes", Cat::leftovers, "");
        row("Documents/Disk.VMDK", Cat::largeFiles, "protectedExtension");
        row(".Trash/x", Cat::largeFiles, "protectedLocation");
        row("Documents/Backups.backupdb/x", Cat::largeFiles, "protectedLocation");
        row("Movies/film.mov", Cat::largeFiles, "");
        row("Library/Logs/DiagnosticReports/a.ips", Cat::logs, "");
        row("Library/Logs/Quorvel", Cat::logs, "protectedLocation");
        row(".ollama/models/blob", Cat::ai, "");
        row("Library/Developer/Xcode/DerivedData", Cat::developer, "");
        const QString id = u"CFBundleIdentifier"_s;
        const QByteArray apple = plist({{id, u"com.apple.Safari"_s}}, true);
        const Cat app = Cat::unusedApps;
        row("Applications/Editor.app", app, "", plist({{id, u"org.example.Editor"_s}}));
        row("Applications/Safari.app/", app, "appleApplication", apple);
        // Hostile files neither crash the reader nor hide what they hold.
        row("Applications/Nul.app", app, "appleApplication",
            "<dict><key>CFBundleIdentifier</key><string>com.apple.\0x</string></dict>"_ba);
        row("Applications/Key.app", app, "",
            QByteArray::fromHex("62706c6973743030d1010262000000e909080b10000000000000010100000000"
                                "0000000300000000000000000000000000000011"));
        row("Applications/Cut.app", app, "", apple.first(apple.size() - 20));
        row("Applications/Big.app", app, "",
            plist({{id, u"com.apple.Big"_s}}) + QByteArray(PlistReader::kMaxBytes, ' '));
        row("/Applications/Tool.app", app, "");
        row("/Applications/Utilities/Tool.app", app, "notAnApplication");
        row("/Applications/Tool.APP", app, "notAnApplication");
        row("/Applications/x/../Tool.app", app, "notAnApplication");
    }
    void guard()
    {
        QFETCH(QString, path);
        QFETCH(int, category);
        QFETCH(QString, refusal);
        QFETCH(QByteArray, info);
        path = item(path, Cat(category)).path;
        QVERIFY(cleanCategoryFromRaw(rawValue(Cat(category))) == Cat(category));
        QVERIFY(info.isNull() || write(path + u"/Contents/Info.plist"_s, info) >= 0);
        const auto refused = SafetyGuard::refusal(path, Cat(category), m_home->where());
        QCOMPARE(refused ? rawValue(*refused) : QString(), refusal);
    }

    // An item is its path, with or without a trailing "/"; raw values are exact.
    void identity()
    {
        const CleanItem a = item(u"x"_s, Cat::userCache), b = item(u"x/"_s, Cat::ai, 9);
        QVERIFY(a == b && qHash(a) == qHash(b) && b.id() == a.path &&
                !(a == item(u"y"_s, Cat::ai)));
        QVERIFY(!cleanCategoryFromRaw(u"LargeFiles"_s) && !cleanCategoryFromRaw(QString()));
    }

    // Refused items never reach the Trash; a link on the way refuses (its target stays), the
    // item itself may be a link. A failed move keeps the system's errno. Only moves log.
    void outcomes_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("category");
        QTest::addColumn<QString>("link"); // "link>target": made below home first
        QTest::addColumn<int>("failure");  // of a scripted move; -1: the real one
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("code");
        using F = Platform::TrashFailure;
        const auto row = [](const char *path, Cat category, const char *link, int failure,
                            int error, const char *code) {
            QTest::addRow("%s %s", code, link)
                << QString::fromUtf8(path) << int(category) << QString::fromUtf8(link) << failure
                << error << QString::fromLatin1(code);
        };
        row("Documents/a", Cat::userCache, "", -1, 0, "notCleanable");
        row("/etc/hosts", Cat::largeFiles, "", -1, 0, "outsideHome");
        row("Library/Mail/x", Cat::leftovers, "", -1, 0, "protectedLocation");
        row("Library/Caches/Documents", Cat::userCache, "Library/Caches>..", -1, 0, "symbolicLink");
        row("Library/Caches/x", Cat::userCache, "Library>Documents", -1, 0, "symbolicLink");
        row("Applications/x.app", Cat::unusedApps, "Applications>Documents", -1, 0, "symbolicLink");
        row("Library/Caches/x", Cat::userCache, "Library/Caches/x>../../Documents", -1, 0, "moved");
        const auto failed = [&](F failure, int error, const char *code) {
            row("Library/Caches/x", Cat::userCache, "", int(failure), error, code);
        };
        failed(F::missing, ENOENT, "missing");
        failed(F::permissionDenied, EACCES, "permissionDenied");
        failed(F::noTrash, 0, "noTrash");
        failed(F::nameTooLong, ENAMETOOLONG, "nameTooLong");
        failed(F::permissionDenied, EXDEV, "crossDevice");
        failed(F::none, EIO, "other");
    }
    void outcomes()
    {
        QFETCH(QString, path);
        QFETCH(int, category);
        QFETCH(QString, link);
        QFETCH(int, failure);
        QFETCH(int, error);
        QFETCH(QString, code);
        QVERIFY(writeFile(at(u"Documents/x/doc"_s), 10) > 0);
        QVERIFY(link.isEmpty() || makeLink(link.section(u'>', 1), at(link.section(u'>', 0, 0))));
        FakeSystem &system = machine();
        if (failure >= 0) {
            system.move = [&](const QString &, const QString &) {
                Platform::TrashMove move;
                move.failure = Platform::TrashFailure(failure);
                move.errorCode = error;
                return move;
            };
        }
        const auto result = Cleaner::remove({item(path, Cat(category))}, system);
        QCOMPARE(Cleaner::code(result.items.value(0)), code);
        QVERIFY(code != u"other" || Words::reason(result.items[0]) == qt_error_string(EIO));
        QCOMPARE(result.items[0].errorCode, failure < 0 ? 0 : error);
        QCOMPARE(system.asked().size(), int(failure >= 0 || code == u"moved"));
        QCOMPARE(QFileInfo::exists(m_home->where().removalLog()), code == u"moved");
        QVERIFY(QFileInfo::exists(at(u"Documents/x/doc"_s)));
    }

    // A gone item stops nothing; each move appends one line of four fields whatever a name
    // holds. The move acts on the path judged; the log shows the item's own.
    void movesToTrashAndLogs()
    {
        QList<CleanItem> items;
        QStringList asked;
        for (const QString &name : {u"com.a/"_s, u"./a\nb"_s, u"gone"_s, u"t\tb\\"_s,
                                    u"n\n2020-01-01T00:00:00Z\tuserCache\t1 KB\tFORGED"_s}) {
            items.append(item(u"Library/Caches/"_s + name, Cat::userCache, 1000));
            asked.append(u"move "_s + PathText::standardized(items.last().path));
            QVERIFY(name == u"gone" || writeFile(asked.last().mid(5) + u"/data"_s, 10) > 0);
        }
        const auto first = Cleaner::remove(items.mid(0, 1), machine());
        const auto rest = Cleaner::remove(items.mid(1), *m_system);
        const QList<Cleaner::Outcome> moved = first.items + rest.items;
        QCOMPARE(Cleaner::code(moved[2]), u"missing"_s);
        QVERIFY(first.count == 1 && rest.count == 3 && rest.bytes == 3000);
        QCOMPARE(m_system->asked(), asked);
        QFile log(m_home->where().removalLog()); // private to the user, its folder too
        QVERIFY(log.open(QIODevice::ReadOnly) && (log.permissions() & 0x0177) == 0);
        QCOMPARE(QFileInfo(m_home->where().removalLogFolder()).permissions() & 0x0077, 0);
        const QStringList lines = QString::fromUtf8(log.readAll()).split(u'\n', Qt::SkipEmptyParts);
        QVERIFY(lines.size() == 4 && Cleaner::logs(m_home->where()).isEmpty()); // not its own
        for (int i : {0, 1, 3, 4}) {
            const QString line = lines[i - (i > 2)], trashed = moved[i].trashedPath;
            QVERIFY(trashed.startsWith(m_system->trashItemsFolder() + u'/') &&
                    QFileInfo::exists(trashed) && !QFileInfo::exists(asked[i].mid(5)));
            QCOMPARE(line.section(u'\t', 1),
                     u"userCache\t"_s + Fmt::bytes(1000) + u'\t' +
                         PathText::escaped(items[i].path + u" → "_s + trashed));
            const auto stamp = QDateTime::fromString(line.section(u'\t', 0, 0), Qt::ISODate);
            QVERIFY(stamp.timeSpec() == Qt::UTC &&
                    qAbs(stamp.secsTo(QDateTime::currentDateTimeUtc())) < 60);
        }
    }

    // Whatever stands where the log belongs, nothing is written through it, the move still
    // happens and its result says the line is missing.
    void hostileLog_data()
    {
        QTest::addColumn<QString>("kind");
        for (const char *kind :
             {"link to a file", "dangling link", "folder link", "folder is a file", "pipe",
              "log is a folder", "someone else's folder"})
            QTest::newRow(kind) << QString::fromLatin1(kind);
    }
    void hostileLog()
    {
        QFETCH(QString, kind);
        const QString folder = m_home->where().removalLogFolder(),
                      log = folder + u"/removals.log"_s;
        const QString outside = at(u"outside"_s);
        QVERIFY(writeFile(outside + u"/target.txt"_s, 4) > 0 &&
                QDir().mkpath(at(u"Library/Logs"_s)));
        bool ok = kind.contains(u"folder ") || QDir().mkpath(folder);
        if (kind == u"link to a file")
            ok = ok && makeLink(outside + u"/target.txt"_s, log);
        else if (kind == u"dangling link")
            ok = ok && makeLink(outside + u"/new.txt"_s, log);
        else if (kind == u"folder link")
            ok = makeLink(outside, folder);
        else if (kind == u"folder is a file")
            ok = writeFile(folder, 4) > 0;
        else if (kind == u"pipe")
            ok = ok && ::mkfifo(QFile::encodeName(log), 0600) == 0;
        else if (kind == u"log is a folder")
            ok = ok && QDir().mkpath(log);
        else if (::geteuid() != 0)
            QSKIP("giving a folder to another user needs root");
        else
            ok = ok && ::chown(QFile::encodeName(folder), 65534, 65534) == 0;
        QVERIFY(ok && writeFile(at(u"Library/Caches/com.h"_s), 10) > 0);

        const auto result =
            Cleaner::remove({item(u"Library/Caches/com.h"_s, Cat::userCache)}, machine());
        QVERIFY(result.count == 1 && result.items[0].logFailure);
        QVERIFY(Words::removalSummary(result).contains(u"The removal log could not be written"_s));
        QVERIFY(QDir(outside).entryList(QDir::Files) == QStringList{u"target.txt"_s} &&
                QFileInfo(outside + u"/target.txt"_s).size() == 4);
        struct stat st;
        QVERIFY(::lstat(QFile::encodeName(log), &st) != 0 || !S_ISREG(st.st_mode));
    }

    // The caches folder swapped for a link to the documents while removals run, as root and
    // as an ordinary user: each move fails or takes the cache; the document never moves.
    void swappedFolderRace()
    {
        for (const bool unprivileged : {false, true}) {
            if (unprivileged && ::geteuid() != 0)
                break;
            clear(m_home->path());
            const QByteArray caches = QFile::encodeName(at(u"Library/Caches"_s)),
                             aside = caches + ".real";
            QVERIFY(writeFile(at(u"Documents/doc"_s), 10) > 0 &&
                    QDir().mkpath(at(u"Library/Caches"_s)));
            if (unprivileged) {
                QCOMPARE(QProcess::execute(u"chown"_s, {u"-R"_s, u"65534:65534"_s, m_home->path()}),
                         0);
                QVERIFY(::seteuid(65534) == 0);
            }
            std::atomic<bool> stop{false};
            std::thread swapper([&] {
                while (!stop) {
                    ::rename(caches, aside);
                    ::symlink("../Documents", caches);
                    std::this_thread::yield();
                    ::unlink(caches);
                    ::rename(aside, caches);
                }
            });
            const QDeadlineTimer deadline(3000);
            for (int round = 0; round < 300 && !deadline.hasExpired(); ++round) {
                for (const QByteArray &folder : {caches, aside}) {
                    const int fd =
                        ::open(folder + "/doc", O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
                    if (fd >= 0)
                        ::close(fd);
                }
                Cleaner::remove({item(u"Library/Caches/doc"_s, Cat::userCache)}, machine());
                if (!QFileInfo::exists(at(u"Documents/doc"_s)))
                    break;
            }
            stop = true;
            swapper.join();
            QVERIFY(!unprivileged || ::seteuid(0) == 0);
            QVERIFY2(QFileInfo::exists(at(u"Documents/doc"_s)), "the document moved");
        }
    }

    // Largest first, equal sizes in listing order; hidden files count. No items: empty,
    // not UTF-8, Apple's, shared or excluded (with or without a "/") entries.
    void caches()
    {
        const QString caches = at(u"Library/Caches/"_s);
        const QByteArray raw = QFile::encodeName(caches);
        const qint64 big = writeFile(caches + u"com.example.Big/a.db"_s, 50'000) +
                           writeFile(caches + u"com.example.Big/.hidden/b.db"_s, 30'000);
        const qint64 outer = write(raw + "outer/bad\xff", QByteArray(40'000, 'x')) +
                             writeFile(caches + u"outer/plain"_s, 4'000);
        QVERIFY(write(raw + "bad\xff\xfe/f", QByteArray(90'000, 'x')) > 0 &&
                QDir().mkpath(caches + u"empty"_s));
        for (const QString &name : {u"pip"_s, u"Homebrew"_s, u"com.apple.Safari"_s, u"CloudKit"_s,
                                    u"com.crashlytics.data"_s, u".hidden"_s})
            QVERIFY(writeFile(caches + name + u"/f"_s, 90'000) > 0);
        QVERIFY(writeFile(caches + u"com.apple/f"_s, 20'000) > 0 &&
                writeFile(caches + u"com.applesauce/f"_s, 16'000) > 0 &&
                writeFile(caches + u"geoservices"_s, 1) > 0);
        const QStringList same{u"delta"_s, u"alpha"_s, u"charlie"_s, u"bravo"_s};
        for (const QString &name : same)
            QVERIFY(writeFile(caches + name + u"/f"_s, 8'000) > 0);
        const QList<CleanItem> items =
            Cleaner::userCaches(m_home->where(), {caches + u"pip"_s, caches + u"Homebrew/"_s});
        const QStringList equal = QDir(caches).entryList(same, QDir::Dirs, QDir::Unsorted);
        const QStringList larger{u"com.example.Big"_s, u"outer"_s, u"com.apple"_s,
                                 u"com.applesauce"_s};
        QCOMPARE(titles(items), larger + equal + QStringList{u"geoservices"_s});
        QVERIFY(items[0].path == caches + u"com.example.Big"_s && items[0].bytes == big &&
                items[1].bytes == outer && items[0].subtitle == u"~/Library/Caches");
        QVERIFY(items[0].category == Cat::userCache && items[0].method == CleanMethod::delete_);
        // The AI and developer places are one item each; near misses, empty places and
        // places that are links are none.
        const qint64 dotPip = writeFile(at(u".cache/pip/http/a"_s), 10'000);
        const qint64 derived = writeFile(at(u"Library/Developer/Xcode/DerivedData/x"_s), 5);
        QVERIFY(QDir().mkpath(at(u"Library/Developer/Xcode/Archives/2024-01-01"_s)) &&
                writeFile(at(u".cache/huggingface-old/x"_s), 10'000) > 0);
        const QString elsewhere = at(u"elsewhere-"_s + QString(120, u'x'));
        QVERIFY(writeFile(elsewhere + u"/w"_s, 10'000) > 0 &&
                makeLink(elsewhere, at(u".cache/torch"_s)));
        const QList<CleanItem> ai = Cleaner::aiClutter(m_home->where());
        QCOMPARE(titles(ai), (QStringList{u"pip"_s, u"pip"_s}));
        QVERIFY(ai[0].subtitle == u"~/Library/Caches" && ai[1].bytes == dotPip &&
                ai[1].subtitle == u"~/.cache" && ai[0].category == Cat::ai);
        const QList<CleanItem> developer = Cleaner::developerJunk(m_home->where());
        QCOMPARE(titles(developer), (QStringList{u"Homebrew"_s, u"DerivedData"_s}));
        QVERIFY(developer[1].bytes == derived && developer[1].category == Cat::developer);
    }

    // A scan root that is a link, or lies behind one, lists nothing; the same tree in its
    // real place is found.
    void linkedRoots_data()
    {
        QTest::addColumn<QString>("root");
        QTest::addColumn<QString>("inside");
        QTest::newRow("caches") << u"Library/Caches"_s << u"com.x/data"_s;
        QTest::newRow("library") << u"Library"_s << u"Caches/com.x/data"_s;
        QTest::newRow("logs") << u"Library/Logs"_s << u"app.log"_s;
        QTest::newRow("cache folder") << u".cache"_s << u"huggingface/model"_s;
        QTest::newRow("containers") << u"Library/Containers"_s << u"com.gone.app/data"_s;
    }
    void linkedRoots()
    {
        QFETCH(QString, root);
        QFETCH(QString, inside);
        QVERIFY(writeFile(at(u"elsewhere/"_s + inside), 20'000) > 0 &&
                makeLink(at(u"elsewhere"_s), at(root)));
        const Locations where = m_home->where();
        const auto found = [&] {
            return Cleaner::userCaches(where) + Cleaner::logs(where) + Cleaner::aiClutter(where) +
                   Cleaner::leftovers({}, machine());
        };
        QCOMPARE(titles(found()), QStringList());
        QVERIFY(QFile::remove(at(root)) && QFile::rename(at(u"elsewhere"_s), at(root)));
        QCOMPARE(found().size(), 1);
    }

    void owned_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("installed");
        QTest::addColumn<bool>("owned");
        const QStringList editor{u"com.example.Editor"_s};
        const auto row = [](const char *name, const QStringList &installed, bool owned) {
            QTest::newRow(name) << QString::fromUtf8(name) << installed << owned;
        };
        row("com.example.editor", {u"com.Example.Editor"_s}, true);
        row("COM.EXAMPLE.Viewer", editor, true); // the vendor's
        row("org.example.Editor", editor, false);
        row("editor.plugin.extra", {u"Editor"_s}, true); // a companion
        row("editorx.plugin.extra", {u"Editor"_s}, false);
        row("A0Z9BCDE12.com.example.Editor", editor, true); // a team's
        row("abcde12345.com.example.Editor", editor, false);
        row("ABCDE1234.com.example.Editor", editor, false);
        row("group.com.example.Editor.shared", editor, true);
        row("group.ABCDE12345.com.example.Editor", editor, true);
        row("Homebrew", {}, true); // too short for an identifier
        row("com.apple.Safari", {}, true);
        row("com.Microsoft.AutoUpdate.fba", {}, true); // outlives its applications
    }
    void owned()
    {
        QFETCH(QString, name);
        QFETCH(QStringList, installed);
        QFETCH(bool, owned);
        QCOMPARE(
            Cleaner::owned(name, Cleaner::KnownApps::from({installed.cbegin(), installed.cend()})),
            owned);
    }

    void leftovers()
    {
        const QString apps = at(u"Apps/"_s), found = at(u"Elsewhere/Found.app"_s);
        for (const QString &app : {apps + u"Editor.app"_s, apps + u"Suite/Inner.app"_s,
                                   apps + u"Suite/Deeper/Deep.app"_s, found})
            QVERIFY(makeApp(app, u"com."_s + QFileInfo(app).baseName() + u".App"_s, {}) > 0);
        FakeSystem &system = machine();
        system.tool = [&](const QString &, const QStringList &) { return std::optional(found); };
        system.running = {{u"COM.RUNNING.APP"_s, {}}, {{}, u"/x/NoID.app"_s}};
        const QString library = at(u"Library/"_s);
        for (const auto &[path, size] : QList<std::pair<QString, qint64>>{
                 {u"Containers/com.Editor.App/d"_s, 9'000},
                 {u"Containers/com.Inner.App/d"_s, 9'000},
                 {u"Containers/com.Found.App/d"_s, 9'000},
                 {u"Containers/com.Running.App/d"_s, 9'000},
                 {u"Containers/com.Deep.App/d"_s, 1'000},
                 {u"Containers/com.gone.App/d"_s, 10'000},
                 {u"Group Containers/ABCDE12345.com.gone.App/d"_s, 9'000},
                 {u"Preferences/com.gone.App.plist"_s, 2'000},
                 {u"Preferences/com.gone.Other.PLIST"_s, 2'000},
                 {u"Caches/com.gone.App/d"_s, 50'000},
                 {u"Saved Application State/com.gone.App.savedState/d"_s, 3'000},
                 {u"WebKit/com.gone.App/d"_s, 30'000},
                 {u"Logs/com.gone.App/d"_s, 30'000}})
            QVERIFY(writeFile(library + path, size) > 0);
        const QList<CleanItem> items = Cleaner::leftovers({apps.chopped(1), at(u"none"_s)}, system);
        QStringList shown;
        for (const CleanItem &item : items)
            shown.append(item.title + u" in "_s +
                         item.path.mid(library.size()).section(u'/', 0, 0));
        QCOMPARE(shown, (QStringList{u"ABCDE12345.com.gone.App in Group Containers"_s,
                                     u"com.Deep.App in Containers"_s, u"com.gone.App in Caches"_s,
                                     u"com.gone.App in WebKit"_s, u"com.gone.App in Logs"_s,
                                     u"com.gone.App in Containers"_s,
                                     u"com.gone.App.plist in Preferences"_s,
                                     u"com.gone.App.savedState in Saved Application State"_s}));
        QVERIFY(items[2].bytes == allocated(library + u"Caches/com.gone.App/d"_s) &&
                items[2].category == Cat::leftovers && items[2].method == CleanMethod::trash &&
                items[2].subtitle == u"Cache · ~/Library/Caches"_s);
        QCOMPARE(system.asked(), QStringList{u"/usr/bin/mdfind kMDItemContentType == "
                                             "'com.apple.application-bundle'"_s});
    }

    void lastUsed_data()
    {
        QTest::addColumn<QDateTime>("spotlight"); // invalid: Spotlight does not know
        QTest::addColumn<bool>("executableKey");
        QTest::addColumn<QDateTime>("accessed"); // invalid: no executable
        QTest::addColumn<QDateTime>("expected");
        const QDateTime none;
        QTest::newRow("read later") << daysAgo(730) << true << daysAgo(10) << daysAgo(10);
        QTest::newRow("opened later") << daysAgo(5) << true << daysAgo(300) << daysAgo(5);
        QTest::newRow("no executable") << daysAgo(400) << false << daysAgo(1) << daysAgo(400);
        QTest::newRow("no Spotlight") << none << true << daysAgo(30) << daysAgo(30);
        QTest::newRow("neither") << none << true << none << none;
    }
    void lastUsed()
    {
        QFETCH(QDateTime, spotlight);
        QFETCH(bool, executableKey);
        QFETCH(QDateTime, accessed);
        QFETCH(QDateTime, expected);
        const QString bundle = at(u"Applications/Some App.app"_s);
        QVERIFY(makeApp(bundle, u"com.example.Some"_s, accessed, spotlight) > 0);
        if (!executableKey)
            QVERIFY(write(bundle + u"/Contents/Info.plist"_s,
                          plist({{u"CFBundleIdentifier"_s, u"x.y.z"_s}})) > 0);
        const std::optional<QDateTime> used = Cleaner::lastUsed(bundle, machine());
        QCOMPARE(used ? used->toUTC() : QDateTime(), expected);
        QCOMPARE(m_system->asked(), QStringList{u"last used "_s + bundle});
    }

    // Not opened since before the cut-off, never Apple's, ours or a running one; the folders
    // and not below them. Largest first.
    void unusedApps()
    {
        const QString home = at(u"Applications"_s), root = at(u"Root/Applications"_s);
        const qint64 old =
            makeApp(home + u"/Old.app"_s, u"com.example.Old"_s, daysAgo(300), daysAgo(400), 20'000);
        const qint64 big =
            makeApp(root + u"/Big.app"_s, u"com.example.Big"_s, daysAgo(500), {}, 200'000);
        QVERIFY(makeApp(root + u"/Edge.app"_s, u"com.example.Edge"_s, daysAgo(180, 1)) > 0);
        QVERIFY(makeApp(root + u"/Recent.app"_s, u"com.example.Recent"_s, daysAgo(180)) > 0);
        for (const QString &app :
             {u"Safari.app com.apple.Safari"_s,
              u"Quorvel.app "_s + QLatin1String(kQuorvelBundleIdentifier),
              u"Running.app com.example.Running"_s, u"Utilities/Deep.app com.example.Deep"_s,
              u"NoID.app"_s, u"Bundle.APP com.example.Upper"_s})
            QVERIFY(makeApp(root + u'/' + app.section(u' ', 0, 0), app.section(u' ', 1),
                            daysAgo(9000)) > 0);
        QVERIFY(makeApp(root + u"/Unknown.app"_s, u"com.example.Unknown"_s, QDateTime()) > 0);
        FakeSystem &system = machine();
        system.running = {{u"com.example.Running"_s, root + u"/../Applications/./Running.app/"_s}};
        const QList<CleanItem> items = Cleaner::unusedApps(180, {root, home}, system);
        QCOMPARE(titles(items), (QStringList{u"Big"_s, u"Old"_s, u"Edge"_s}));
        QVERIFY(items[0].path == root + u"/Big.app"_s && items[0].bytes == big &&
                items[1].bytes == old);
        QVERIFY(items[0].category == Cat::unusedApps && items[0].method == CleanMethod::trash);
        // The later date is shown; judging and measuring read no executable.
        const QString opened = Platform::mediumDate(daysAgo(300)) + u" · "_s + home;
        QCOMPARE(items[1].subtitle, u"Last opened "_s + opened);
        QCOMPARE(Platform::accessTime(home + u"/Old.app/Contents/MacOS/Run"_s), daysAgo(300));
    }

    // A hostile file's nesting is cut at a fixed depth, not followed as far as it goes.
    void plistDepth()
    {
        const QByteArray deep = "<plist><dict><key>k</key>" + QByteArray("<array>").repeated(70) +
                                "<string>x</string>" + QByteArray("</array>").repeated(70) +
                                "</dict></plist>";
        QVariant v = PlistReader::parseDictionary(deep, {u"k"_s}).value_or(QVariantMap())[u"k"_s];
        int depth = 0;
        for (; v.typeId() == QMetaType::QVariantList && !v.toList().isEmpty(); ++depth)
            v = v.toList().first();
        QCOMPARE(depth, 63);
    }
};

QTEST_GUILESS_MAIN(CleanupTest)
#include "tst_cleanup.moc"
