#include "core/models/CleanModel.h"
#include "core/models/OverviewModel.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/types/ToolPage.h"

#include <QtTest>
#include <atomic>

using namespace Qt::StringLiterals;
using Cat = CleanCategory;
using Kind = Cleaner::Outcome::Kind;

namespace {

// Scanners returning fixed items and a removal refusing `failing`, recording every call.
struct Fakes
{
    QMutex mutex;
    QStringList calls;
    QList<CleanItem> leftovers;
    QSet<QString> failing;
    QString unlogged;
    QSemaphore noted;

    QList<CleanItem> note(const QString &call, Cat category, const QStringList &found = {})
    {
        QMutexLocker lock(&mutex);
        calls.append(call);
        noted.release();
        QList<CleanItem> items;
        for (const QString &path : found)
            items << CleanItem{path, path, u"~"_s, 1000, category, CleanMethod::delete_};
        return items;
    }
    CleanModel::Services services()
    {
        CleanModel::Services s;
        s.aiClutter = [this] { return note(u"ai"_s, Cat::ai, {u"/h/.pip"_s, u"/h/C/pip"_s}); };
        s.developerJunk = [this] { return note(u"dev"_s, Cat::developer, {u"/h/C/brew"_s}); };
        s.logs = [this] { return note(u"logs"_s, Cat::logs, {u"/h/Logs/a"_s}); };
        s.leftovers = [this] { return note(u"leftovers"_s, Cat::leftovers) + leftovers; };
        s.userCaches = [this](const QSet<QString> &excluding) {
            QStringList all{u"/h/C/pip"_s, u"/h/C/brew"_s, u"/h/C/x"_s};
            all.removeIf([&](const QString &path) { return excluding.contains(path); });
            return note(u"userCache"_s, Cat::userCache, all);
        };
        s.unusedApps = [this](int days) {
            return note(u"unused %1"_s.arg(days), Cat::unusedApps, {u"/A/Old.app"_s});
        };
        s.largeFiles = [this](qint64 minBytes, std::function<void(qint64)> progress) {
            progress(2000);
            progress(4000);
            return note(u"large %1"_s.arg(minBytes), Cat::largeFiles, {u"/h/big.mov"_s});
        };
        s.remove = [this](const QList<CleanItem> &items) {
            note(u"remove %1"_s.arg(items.size()), Cat::logs);
            Cleaner::Result r;
            for (const CleanItem &i : items) {
                const bool fails = failing.contains(i.path);
                r.items.append({i.path, i.title, fails ? Kind::refused : Kind::moved, QString(),
                                i.path == unlogged ? std::optional(ENOSPC) : std::nullopt,
                                SafetyGuard::Refusal::protectedLocation, Cleaner::Failure::other, 0,
                                QString()});
                r.count += fails ? 0 : 1;
                r.bytes += fails ? 0 : i.bytes;
            }
            return r;
        };
        return s;
    }
};

// Runs the loop until the model is idle, recording each progress text it shows meanwhile.
QStringList waitIdle(CleanModel &model)
{
    QStringList seen;
    QObject context;
    QObject::connect(&model, &CleanModel::changed, &context, [&] {
        if (model.scanning() && (seen.isEmpty() || seen.last() != model.progress()))
            seen.append(model.progress());
    });
    (void)QTest::qWaitFor([&] { return !model.scanning(); }, 10'000);
    return seen;
}

QStringList paths(const QList<CleanItem> &items)
{
    QStringList result;
    for (const CleanItem &i : items)
        result.append(i.path);
    return result;
}

// The overview's measurements: a Trash of two entries, emptied as scripted.
struct FakeDisk
{
    std::atomic<int> scans{0}, confirmed{-1};
    std::optional<TrashSize> trash = TrashSize{4096, 2, {{{"a", 1, 7}, {"b", 1, 8}}, 0}};
    TrashEmptyResult emptying;

    OverviewModel::Services services()
    {
        return {[this](const DiskScanner::NameProgress &progress) {
                    ++scans;
                    progress(u"Documents"_s);
                    progress(u"Downloads"_s);
                    return QList<DiskCategory>{{u"documents"_s, u"Documents"_s, 10}};
                },
                [this] { return trash; },
                [this](const std::optional<Platform::TrashContents> &counted) {
                    confirmed = counted ? int(counted->entries.size()) : -1;
                    // A failed emptying here also leaves the Trash unreadable.
                    trash = emptying.systemText.isEmpty() ? std::optional(TrashSize{512, 1, {}})
                                                          : std::nullopt;
                    return emptying;
                }};
    }
};

} // namespace

class ModelsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { L10n::overrideForTesting(false); }

    // Claiming scans go first, so a folder shows once; only what may safely go starts selected.
    void cleanScanOrderClaimsAndSelection()
    {
        Fakes fakes;
        CleanModel model(
            {Cat::userCache, Cat::logs, Cat::ai, Cat::developer, Cat::largeFiles, Cat::unusedApps},
            fakes.services());
        model.setSelected(u"/stale"_s, true);
        model.scan();
        model.scan(); // ignored while the first runs
        const QStringList progress = waitIdle(model);
        QTest::qWait(50);
        QCOMPARE(fakes.calls, (QStringList{u"ai"_s, u"dev"_s, u"userCache"_s, u"logs"_s,
                                           u"large 524288000"_s, u"unused 180"_s}));
        // Large-file progress is the bare count, for either language.
        QCOMPARE(progress,
                 (QStringList{u"AI tools & models"_s, u"Developer junk"_s, u"App caches"_s,
                              u"Logs & crash reports"_s, u"Large files"_s, u"2000"_s, u"4000"_s,
                              u"Apps not opened for 6 months"_s}));
        const QStringList safe{u"/h/.pip"_s, u"/h/C/pip"_s, u"/h/C/brew"_s, u"/h/C/x"_s,
                               u"/h/Logs/a"_s};
        QCOMPARE(paths(model.items()), (safe + QStringList{u"/h/big.mov"_s, u"/A/Old.app"_s}));
        QCOMPARE(paths(model.selectedItems()), safe);
        QCOMPARE(model.selected().size(), safe.size());
        QVERIFY(model.scanned());

        auto *gone = new CleanModel({Cat::largeFiles}, fakes.services());
        gone->scan();
        delete gone; // its progress and result are dropped without harm
        QVERIFY(fakes.noted.tryAcquire(6 + 1, 5000));
        QTest::qWait(100);
    }

    // What stays is decided by path: titles repeat and prefix each other.
    void cleanRemovalKeepsFailuresByPath()
    {
        Fakes fakes;
        for (const char *title : {"Same", "Same", "a", "a:b", "f4", "f5", "f6", "f7", "mine"})
            fakes.leftovers.append({u"/p/%1"_s.arg(fakes.leftovers.size()), QLatin1String(title),
                                    u"~"_s, 1, Cat::leftovers, CleanMethod::delete_});
        fakes.failing = {u"/p/1"_s, u"/p/2"_s, u"/p/4"_s, u"/p/5"_s, u"/p/6"_s, u"/p/7"_s};
        fakes.unlogged = u"/p/3"_s;
        CleanModel model({Cat::leftovers}, fakes.services());
        model.scan();
        waitIdle(model);
        model.clean(); // nothing selected: nothing happens
        QVERIFY(!model.scanning());
        model.setSelected(fakes.failing + QSet<QString>{u"/p/0"_s, u"/p/3"_s});
        model.clean();
        waitIdle(model);
        QCOMPARE(fakes.calls, (QStringList{u"leftovers"_s, u"remove 8"_s})); // and no rescan
        QCOMPARE(model.selected(), fakes.failing);
        QCOMPARE(paths(model.items()), (QStringList{u"/p/1"_s, u"/p/2"_s, u"/p/4"_s, u"/p/5"_s,
                                                    u"/p/6"_s, u"/p/7"_s, u"/p/8"_s}));
        // At most five skipped lines, then the one about the log.
        QCOMPARE(model.message().value_or(QString()),
                 u"Moved 2 item(s) ("_s + Fmt::bytes(2) + u") to the Trash.\nSkipped:\n"_s +
                     u"Same|a|f4|f5|f6|"_s.replace(u"|"_s, u": protected location — refused\n"_s) +
                     u"The removal log could not be written ("_s + qt_error_string(ENOSPC) +
                     u"): 1 move(s) not logged."_s);
    }

    void overviewScanPublishesCategories()
    {
        FakeDisk disk;
        OverviewModel model(disk.services());
        model.scan();
        model.scan(); // ignored while the first runs
        QTRY_VERIFY(!model.scanning());
        QCOMPARE(model.cats().first().id, u"documents"_s);
        // The last report may land after the result; it is the last name either way.
        QTRY_COMPARE(model.progress(), u"Downloads"_s);
        QTest::qWait(50);
        QCOMPARE(disk.scans.load(), 1);
    }

    void overviewEmptying_data()
    {
        using Code = TrashEmptyResult::Code;
        QTest::addColumn<bool>("zh");
        QTest::addColumn<TrashEmptyResult>("result");
        QTest::addColumn<QString>("after");
        QTest::newRow("arrivals kept, zh") << true << TrashEmptyResult{Code::emptied, 0, 2, {}}
                                           << u"已清空。确认之后放入的 2 项已保留。"_s;
        QTest::newRow("failed, then unreadable")
            << false << TrashEmptyResult{Code::failed, 0, 0, u"No Finder"_s} << u"No Finder"_s;
        QTest::newRow("Finder still at it")
            << false << TrashEmptyResult{Code::stillEmptying, 0, 0, {}}
            << u"The Finder is still emptying the Trash."_s;
    }

    void overviewEmptying()
    {
        QFETCH(bool, zh);
        QFETCH(TrashEmptyResult, result);
        const bool readable = result.code != TrashEmptyResult::Code::failed; // afterwards
        QFETCH(QString, after);
        L10n::overrideForTesting(zh);
        FakeDisk disk;
        disk.emptying = result;
        OverviewModel model(disk.services());
        model.emptyTrash();
        QCOMPARE(model.trashMsg().value_or(QString()), zh ? u"正在清空…"_s : u"Emptying…"_s);
        QTRY_COMPARE(model.trashMsg().value_or(QString()), after);
        // Counted when confirmed, then measured again afterwards, failure or not.
        QCOMPARE(disk.confirmed.load(), 2);
        QTRY_COMPARE(model.trashUnreadable(), !readable);
        QCOMPARE(model.trash().value_or(TrashSize{}).bytes, readable ? 512 : 0);
    }

    // They travel in quorvel:// links and on the command line, and must round-trip exactly.
    void toolPageRawValues()
    {
        for (ToolPage page : kAllToolPages)
            QCOMPARE(toolPageFromRaw(rawValue(page)), page);
        QVERIFY(!toolPageFromRaw(u"Overview"_s).has_value());
    }
};

QTEST_GUILESS_MAIN(ModelsTest)
#include "tst_models.moc"
