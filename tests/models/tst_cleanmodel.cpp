#include "core/models/CleanModel.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/words/CleanupWords.h"

#include <QSemaphore>
#include <QSignalSpy>
#include <QtTest>
#include <atomic>
#include <mutex>

using namespace Qt::StringLiterals;

namespace {

CleanItem item(const QString &path, CleanCategory category, qint64 bytes = 1000,
               const QString &title = {})
{
    return {path,     title.isEmpty() ? path.section(u'/', -1) : title,
            u"~"_s,   bytes,
            category, CleanMethod::delete_};
}

// Scanners that return fixed items and record what they were asked.
struct Recorder
{
    std::mutex mutex;
    QStringList calls;
    QSet<QString> excludingSeen;
    void note(const QString &call)
    {
        std::lock_guard lock(mutex);
        calls.append(call);
    }
};

// Moves everything but the paths in `failing`, which are refused, as the cleaner reports it.
Cleaner::Result fakeRemoval(const QList<CleanItem> &items, const QSet<QString> &failing)
{
    using Kind = Cleaner::Outcome::Kind;
    Cleaner::Result r;
    for (const CleanItem &i : items) {
        const bool fails = failing.contains(i.path);
        Cleaner::Outcome &o = r.items.emplace_back();
        o.path = i.path;
        o.title = i.title;
        o.kind = fails ? Kind::refused : Kind::moved;
        if (fails)
            o.refusal = SafetyGuard::Refusal::protectedLocation;
        if (fails)
            continue;
        ++r.count;
        r.bytes += i.bytes;
    }
    return r;
}

CleanModel::Services fakes(Recorder &rec)
{
    CleanModel::Services s;
    s.aiClutter = [&rec] {
        rec.note(u"ai"_s);
        return QList<CleanItem>{item(u"/h/.cache/pip"_s, CleanCategory::ai),
                                item(u"/h/Library/Caches/pip"_s, CleanCategory::ai)};
    };
    s.developerJunk = [&rec] {
        rec.note(u"developer"_s);
        return QList<CleanItem>{item(u"/h/Library/Caches/Homebrew"_s, CleanCategory::developer)};
    };
    s.userCaches = [&rec](const QSet<QString> &excluding) {
        rec.note(u"userCache"_s);
        {
            std::lock_guard lock(rec.mutex);
            rec.excludingSeen = excluding;
        }
        QList<CleanItem> all{item(u"/h/Library/Caches/pip"_s, CleanCategory::userCache),
                             item(u"/h/Library/Caches/Homebrew"_s, CleanCategory::userCache),
                             item(u"/h/Library/Caches/com.x"_s, CleanCategory::userCache)};
        all.removeIf([&](const CleanItem &i) { return excluding.contains(i.path); });
        return all;
    };
    s.logs = [&rec] {
        rec.note(u"logs"_s);
        return QList<CleanItem>{item(u"/h/Library/Logs/a"_s, CleanCategory::logs)};
    };
    s.leftovers = [&rec] {
        rec.note(u"leftovers"_s);
        return QList<CleanItem>{
            item(u"/h/Library/Containers/com.gone.app"_s, CleanCategory::leftovers)};
    };
    s.unusedApps = [&rec](int days) {
        rec.note(u"unusedApps %1"_s.arg(days));
        return QList<CleanItem>{item(u"/Applications/Old.app"_s, CleanCategory::unusedApps)};
    };
    s.largeFiles = [&rec](qint64 minBytes, std::function<void(qint64)> progress) {
        rec.note(u"largeFiles %1"_s.arg(minBytes));
        progress(2000);
        progress(4000);
        return QList<CleanItem>{item(u"/h/Movies/big.mov"_s, CleanCategory::largeFiles)};
    };
    s.remove = [](const QList<CleanItem> &items) { return fakeRemoval(items, {}); };
    return s;
}

// Runs the loop until the model is idle again, recording every progress text it shows.
QStringList waitIdle(CleanModel &model)
{
    QStringList seen;
    QObject context;
    QObject::connect(&model, &CleanModel::changed, &context, [&] {
        if (model.scanning() && (seen.isEmpty() || seen.last() != model.progress()))
            seen.append(model.progress());
    });
    if (!QTest::qWaitFor([&] { return !model.scanning(); }, 10'000))
        seen.append(u"<timed out>"_s);
    return seen;
}

} // namespace

class CleanModelTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { L10n::overrideForTesting(false); }
    void emptyCategories();
    void scanOrderAndClaims();
    void defaultSelection_data();
    void defaultSelection();
    void largeFileProgressIsBareDigits();
    void secondScanIsIgnored();
    void removal();
    void sameTitles();
    void summaryTexts();
    void nothingSelected();
    void destroyedWhileScanning();
};

void CleanModelTest::emptyCategories()
{
    Recorder rec;
    CleanModel model({}, fakes(rec));
    model.scan();
    waitIdle(model);
    QVERIFY(model.scanned());
    QVERIFY(model.items().isEmpty());
    QVERIFY(model.selected().isEmpty());
    QVERIFY(rec.calls.isEmpty());
}

void CleanModelTest::scanOrderAndClaims()
{
    Recorder rec;
    CleanModel model({CleanCategory::userCache, CleanCategory::logs, CleanCategory::ai,
                      CleanCategory::developer},
                     fakes(rec));
    QVERIFY(!model.scanned());
    model.scan();
    QVERIFY(model.scanning());
    const QStringList progress = waitIdle(model);
    QCOMPARE(rec.calls, (QStringList{u"ai"_s, u"developer"_s, u"userCache"_s, u"logs"_s}));
    QCOMPARE(rec.excludingSeen, (QSet<QString>{u"/h/.cache/pip"_s, u"/h/Library/Caches/pip"_s,
                                               u"/h/Library/Caches/Homebrew"_s}));
    QCOMPARE(progress, (QStringList{u"AI tools & models"_s, u"Developer junk"_s, u"App caches"_s,
                                    u"Logs & crash reports"_s}));
    QStringList paths;
    for (const CleanItem &i : model.items())
        paths.append(i.path);
    // Found order: each scan's items in their own order, scans in scan order; a claimed
    // cache folder appears once.
    QCOMPARE(paths, (QStringList{u"/h/.cache/pip"_s, u"/h/Library/Caches/pip"_s,
                                 u"/h/Library/Caches/Homebrew"_s, u"/h/Library/Caches/com.x"_s,
                                 u"/h/Library/Logs/a"_s}));
    QCOMPARE(model.items(CleanCategory::ai).size(), 2);
    QCOMPARE(model.items(CleanCategory::userCache).size(), 1);
    QCOMPARE(model.progress(), u"Logs & crash reports"_s);
    QVERIFY(model.scanned());
}

void CleanModelTest::defaultSelection_data()
{
    QTest::addColumn<QList<CleanCategory>>("categories");
    QTest::addColumn<int>("items");
    QTest::addColumn<int>("selected");
    QTest::newRow("cleanup") << QList<CleanCategory>{CleanCategory::userCache, CleanCategory::logs,
                                                     CleanCategory::ai, CleanCategory::developer}
                             << 5 << 5;
    QTest::newRow("leftovers") << QList<CleanCategory>{CleanCategory::leftovers} << 1 << 0;
    QTest::newRow("large files") << QList<CleanCategory>{CleanCategory::largeFiles} << 1 << 0;
    QTest::newRow("unused apps") << QList<CleanCategory>{CleanCategory::unusedApps} << 1 << 0;
    // Selection follows the category, whatever page lists it.
    QTest::newRow("mixed") << QList<CleanCategory>{CleanCategory::logs, CleanCategory::leftovers}
                           << 2 << 1;
}

void CleanModelTest::defaultSelection()
{
    QFETCH(QList<CleanCategory>, categories);
    QFETCH(int, items);
    QFETCH(int, selected);
    Recorder rec;
    CleanModel model(categories, fakes(rec));
    model.setSelected(u"/stale"_s, true);
    model.scan();
    waitIdle(model);
    QCOMPARE(model.items().size(), items);
    QCOMPARE(model.selected().size(), selected);
    QVERIFY(!model.selected().contains(u"/stale"_s));
}

void CleanModelTest::largeFileProgressIsBareDigits()
{
    Recorder rec;
    CleanModel model({CleanCategory::largeFiles, CleanCategory::unusedApps}, fakes(rec));
    model.scan();
    const QStringList progress = waitIdle(model);
    QCOMPARE(rec.calls, (QStringList{u"largeFiles 524288000"_s, u"unusedApps 180"_s}));
    QVERIFY2(progress.contains(u"2000"_s) && progress.contains(u"4000"_s),
             qPrintable(progress.join(u'|')));
    QVERIFY(progress.indexOf(u"Large files"_s) < progress.indexOf(u"2000"_s));
}

void CleanModelTest::secondScanIsIgnored()
{
    Recorder rec;
    QSemaphore gate;
    CleanModel::Services s = fakes(rec);
    const auto logs = s.logs;
    s.logs = [&gate, logs] {
        gate.acquire();
        return logs();
    };
    CleanModel model({CleanCategory::logs}, s);
    model.scan();
    model.scan();
    gate.release(2);
    waitIdle(model);
    QTest::qWait(50);
    QCOMPARE(rec.calls, QStringList{u"logs"_s});
}

void CleanModelTest::removal()
{
    Recorder rec;
    CleanModel::Services s = fakes(rec);
    s.remove = [](const QList<CleanItem> &items) {
        return fakeRemoval(items, {u"/h/Library/Caches/com.x"_s});
    };
    CleanModel model({CleanCategory::userCache, CleanCategory::logs}, s);
    model.scan();
    waitIdle(model);
    QCOMPARE(model.items().size(), 4);
    model.setSelected(u"/h/Library/Caches/pip"_s, false); // kept by the user
    QSignalSpy spy(&model, &CleanModel::changed);
    model.clean();
    QVERIFY(model.scanning());
    QCOMPARE(model.progress(), u"Removing…"_s);
    QVERIFY(!model.message().has_value());
    waitIdle(model);
    QStringList left;
    for (const CleanItem &i : model.items())
        left.append(i.title);
    QCOMPARE(left, (QStringList{u"pip"_s, u"com.x"_s}));
    QCOMPARE(model.selected(), QSet<QString>{u"/h/Library/Caches/com.x"_s});
    QCOMPARE(model.message().value_or(QString()),
             u"Moved 2 item(s) ("_s + Fmt::bytes(2000) +
                 u") to the Trash.\nSkipped:\ncom.x: protected location — refused"_s);
    // No rescan after a removal; the next scan clears the message first.
    QCOMPARE(rec.calls.count(u"userCache"_s), 1);
    model.scan();
    QVERIFY(!model.message().has_value());
    waitIdle(model);
}

void CleanModelTest::sameTitles()
{
    // Titles repeat and prefix each other; what stays is decided by path alone.
    Recorder rec;
    CleanModel::Services s = fakes(rec);
    const QStringList titles{u"Same"_s, u"Same"_s, u"a"_s, u"a:b"_s};
    s.leftovers = [titles] {
        QList<CleanItem> found;
        for (int i = 0; i < titles.size(); ++i)
            found.append(item(u"/p/%1"_s.arg(i), CleanCategory::leftovers, 1, titles[i]));
        return found;
    };
    s.remove = [](const QList<CleanItem> &items) {
        return fakeRemoval(items, {u"/p/1"_s, u"/p/2"_s});
    };
    CleanModel model({CleanCategory::leftovers}, s);
    model.scan();
    waitIdle(model);
    model.setSelected({u"/p/0"_s, u"/p/1"_s, u"/p/2"_s, u"/p/3"_s});
    model.clean();
    waitIdle(model);
    QStringList left;
    for (const CleanItem &i : model.items())
        left.append(i.path);
    QCOMPARE(left, (QStringList{u"/p/1"_s, u"/p/2"_s}));
    QCOMPARE(model.selected(), (QSet<QString>{u"/p/1"_s, u"/p/2"_s}));
}

void CleanModelTest::summaryTexts()
{
    QList<CleanItem> taken;
    for (int i = 1; i <= 7; ++i)
        taken.append(item(u"/p/%1"_s.arg(i), CleanCategory::logs, 1, u"item%1"_s.arg(i)));
    Cleaner::Result r =
        fakeRemoval(taken, {u"/p/1"_s, u"/p/2"_s, u"/p/3"_s, u"/p/4"_s, u"/p/5"_s, u"/p/6"_s});
    r.bytes = 1'500'000;
    const QString en = Words::removalSummary(r);
    QCOMPARE(en.split(u'\n').size(), 2 + 5);
    QVERIFY(en.startsWith(u"Moved 1 item(s) (1.5 MB) to the Trash.\nSkipped:\n"
                          u"item1: protected location — refused\n"_s));
    QVERIFY(en.endsWith(u"item5: protected location — refused"_s));
    L10n::overrideForTesting(true);
    const QString zh = Words::removalSummary(fakeRemoval({taken[0]}, {u"/p/1"_s}));
    L10n::overrideForTesting(false);
    QCOMPARE(zh, u"已把 0 项（零 KB）移到废纸篓。\n已跳过：\nitem1: 受保护位置，拒绝"_s);
}

void CleanModelTest::nothingSelected()
{
    Recorder rec;
    std::atomic<int> removals{0};
    CleanModel::Services s = fakes(rec);
    s.remove = [&removals](const QList<CleanItem> &) {
        ++removals;
        return Cleaner::Result{};
    };
    CleanModel model({CleanCategory::leftovers}, s);
    model.scan();
    waitIdle(model);
    QSignalSpy spy(&model, &CleanModel::changed);
    model.clean();
    QTest::qWait(50);
    QCOMPARE(spy.count(), 0);
    QCOMPARE(removals.load(), 0);
    QVERIFY(!model.message().has_value());
    QCOMPARE(model.progress(), u"App leftovers"_s);
}

void CleanModelTest::destroyedWhileScanning()
{
    Recorder rec;
    QSemaphore started, gate;
    std::atomic<bool> returned{false};
    CleanModel::Services s = fakes(rec);
    s.leftovers = [&] {
        started.release();
        gate.acquire();
        returned = true;
        return QList<CleanItem>{item(u"/x"_s, CleanCategory::leftovers)};
    };
    auto *model = new CleanModel({CleanCategory::leftovers}, s);
    model->scan();
    QVERIFY(started.tryAcquire(1, 5000));
    delete model;
    gate.release();
    // The result arrives for a model that is gone: dropped without harm.
    QTRY_VERIFY(returned.load());
    QTest::qWait(100);
}

QTEST_GUILESS_MAIN(CleanModelTest)
#include "tst_cleanmodel.moc"
