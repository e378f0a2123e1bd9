#include "core/models/Nav.h"
#include "core/models/OverviewModel.h"
#include "core/text/L10n.h"
#include "core/words/CategoryWords.h"

#include <QSemaphore>
#include <QtTest>
#include <atomic>

using namespace Qt::StringLiterals;

namespace {

struct FakeDisk
{
    std::atomic<int> scans{0};
    std::atomic<int> trashReads{0};
    std::optional<TrashSize> trash = TrashSize{4096, 2, {{{"a", 1, 7}, {"b", 1, 8}}, 0}};
    std::optional<QString> emptyError;
    std::atomic<int> confirmedEntries{-1};
    QSemaphore *gate = nullptr;

    OverviewModel::Services services()
    {
        OverviewModel::Services s;
        s.categories = [this](const DiskScanner::NameProgress &progress) {
            ++scans;
            if (gate)
                gate->acquire();
            QList<DiskCategory> cats;
            for (const char *id : {"documents", "applications", "desktop", "downloads"}) {
                progress(QString::fromLatin1(id).toUpper());
                cats.append({QString::fromLatin1(id), QString::fromLatin1(id), 10});
            }
            cats.append({u"other"_s, u"Other"_s, 0});
            cats.append({u"free"_s, u"Free"_s, 5});
            return cats;
        };
        s.trashSize = [this] {
            ++trashReads;
            return trash;
        };
        s.emptyTrash = [this](const std::optional<Platform::TrashContents> &confirmed) {
            confirmedEntries = confirmed ? int(confirmed->entries.size()) : -1;
            TrashEmptyResult result;
            if (emptyError)
                result = {TrashEmptyResult::Code::failed, 0, 0, *emptyError};
            trash = TrashSize{};
            return result;
        };
        return s;
    }
};

} // namespace

class OverviewModelTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { L10n::overrideForTesting(false); }
    void scanPublishesCategories();
    void doubleScanStartsOne();
    void trashFigures();
    void emptying_data();
    void emptying();
    void pagesAndNav();
};

void OverviewModelTest::scanPublishesCategories()
{
    FakeDisk disk;
    OverviewModel model(disk.services());
    model.scan();
    QVERIFY(model.scanning());
    QVERIFY(model.progress().isEmpty());
    QTRY_VERIFY(!model.scanning());
    QCOMPARE(model.cats().size(), 6);
    QCOMPARE(model.cats().first().id, u"documents"_s);
    // The last progress report may land after the result; it is the last name either way.
    QTRY_COMPARE(model.progress(), u"DOWNLOADS"_s);
}

void OverviewModelTest::doubleScanStartsOne()
{
    FakeDisk disk;
    QSemaphore gate;
    disk.gate = &gate;
    OverviewModel model(disk.services());
    model.scan();
    model.scan();
    gate.release(2);
    QTRY_VERIFY(!model.scanning());
    QTest::qWait(50);
    QCOMPARE(disk.scans.load(), 1);
}

void OverviewModelTest::trashFigures()
{
    FakeDisk disk;
    OverviewModel model(disk.services());
    QVERIFY(!model.trash().has_value());
    model.refreshTrash();
    QTRY_VERIFY(model.trash().has_value());
    QCOMPARE(model.trash()->bytes, 4096);
    QCOMPARE(model.trash()->count, 2);
    QVERIFY(!model.trashUnreadable());

    disk.trash.reset();
    model.refreshTrash();
    QTRY_VERIFY(model.trashUnreadable());
    QVERIFY(!model.trash().has_value());
    QVERIFY(!model.trashMsg().has_value());
}

void OverviewModelTest::emptying_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("during");
    QTest::addColumn<QString>("after");
    QTest::newRow("success") << false << QString() << u"Emptying…"_s << u"Trash emptied."_s;
    QTest::newRow("success zh") << true << QString() << u"正在清空…"_s << u"已清空。"_s;
    QTest::newRow("failure") << false << u"AppleScript error"_s << u"Emptying…"_s
                             << u"AppleScript error"_s;
}

void OverviewModelTest::emptying()
{
    QFETCH(bool, zh);
    QFETCH(QString, error);
    QFETCH(QString, during);
    QFETCH(QString, after);
    L10n::overrideForTesting(zh);
    FakeDisk disk;
    if (!error.isEmpty())
        disk.emptyError = error;
    OverviewModel model(disk.services());
    model.emptyTrash();
    QCOMPARE(model.trashMsg().value_or(QString()), during);
    QTRY_COMPARE(model.trashMsg().value_or(QString()), after);
    // Counted when confirmed, then measured again afterwards, failure or not.
    QCOMPARE(disk.confirmedEntries.load(), 2);
    QTRY_COMPARE(disk.trashReads.load(), 2);
    QTRY_VERIFY(model.trash().has_value());
    QCOMPARE(model.trash()->count, 0);
    L10n::overrideForTesting(false);
}

void OverviewModelTest::pagesAndNav()
{
    QCOMPARE(kAllToolPages.size(), size_t(7));
    const QStringList raws{u"overview"_s,   u"cleanup"_s, u"leftovers"_s, u"largeFiles"_s,
                           u"unusedApps"_s, u"screen"_s,  u"updates"_s};
    for (size_t i = 0; i < kAllToolPages.size(); ++i) {
        QCOMPARE(rawValue(kAllToolPages[i]), raws[int(i)]);
        QCOMPARE(toolPageFromRaw(raws[int(i)]), kAllToolPages[i]);
    }
    QVERIFY(!toolPageFromRaw(u"Overview"_s).has_value());
    QVERIFY(!toolPageFromRaw(u"trash"_s).has_value());
    QCOMPARE(title(ToolPage::unusedApps), u"Unused Apps"_s);
    L10n::overrideForTesting(true);
    QCOMPARE(title(ToolPage::screen), u"清屏模式"_s);
    L10n::overrideForTesting(false);
    QCOMPARE(symbolName(ToolPage::largeFiles), u"doc.zipper"_s);
    QCOMPARE(cleanCategories(ToolPage::cleanup),
             (QList<CleanCategory>{CleanCategory::userCache, CleanCategory::logs, CleanCategory::ai,
                                   CleanCategory::developer}));
    QCOMPARE(cleanCategories(ToolPage::largeFiles),
             QList<CleanCategory>{CleanCategory::largeFiles});
    QVERIFY(!cleanCategories(ToolPage::updates).has_value());

    Nav &nav = Nav::shared();
    QCOMPARE(&nav, &Nav::shared());
    QCOMPARE(nav.page(), ToolPage::overview);
    int changes = 0;
    QObject context;
    connect(&nav, &Nav::changed, &context, [&] { ++changes; });
    nav.setPage(ToolPage::updates);
    nav.setPage(ToolPage::updates);
    QCOMPARE(nav.page(), ToolPage::updates);
    QCOMPARE(changes, 1);
}

QTEST_GUILESS_MAIN(OverviewModelTest)
#include "tst_overviewmodel.moc"
