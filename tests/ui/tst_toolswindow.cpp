#include "common/TestHome.h"
#include "core/models/AppUpdater.h"
#include "core/models/Nav.h"
#include "core/models/OverviewModel.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/words/CategoryWords.h"
#include "support/FakeSystem.h"
#include "ui/CleanPageProbe.h"
#include "ui/ToolsWindow.h"
#include "ui/kit/Spinner.h"
#include "ui/pages/CleanItemsView.h"
#include "ui/pages/CleanSection.h"

#include <QElapsedTimer>
#include <QListWidget>
#include <QPointer>
#include <QScrollArea>
#include <QScrollBar>
#include <QSignalSpy>
#include <memory>

using namespace Qt::StringLiterals;
using namespace Probe;

Q_DECLARE_METATYPE(CleanCategory)
Q_DECLARE_METATYPE(ToolPage)

namespace {

const QString kRemoveEn = u"Move selected to Trash"_s;

void writeFile(const QString &path, int bytes)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(QByteArray(bytes, 'x')), qint64(bytes));
}

int lineCount(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? int(file.readAll().count('\n')) : 0;
}

} // namespace

class ToolsWindowTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_home = std::make_unique<TestHome>();
        m_system = std::make_shared<FakeSystem>(m_home->where());
        m_overview = std::make_unique<OverviewModel>(OverviewModel::Services::real(m_system));
    }
    void init()
    {
        L10n::overrideForTesting(false);
        Nav::shared().setPage(ToolPage::overview);
        // Each test starts from an empty fixture home.
        QVERIFY(QDir(m_home->file(u"Library"_s)).removeRecursively());
        QVERIFY(QDir(m_home->file(u".local"_s)).removeRecursively());
    }
    void cleanup()
    {
        while (QMessageBox *box = openBox())
            delete box;
    }

    void sidebar_data();
    void sidebar();
    void navigation_data();
    void navigation();
    void scansOnFirstAppearanceOnly_data();
    void scansOnFirstAppearanceOnly();
    void windowKeepsScanAcrossPages();
    void emptySection_data();
    void emptySection();
    void sectionHeader_data();
    void sectionHeader();
    void allNoneTouchOnlyTheirSection_data();
    void allNoneTouchOnlyTheirSection();
    void rowClicks();
    void removeButtonState_data();
    void removeButtonState();
    void confirmationDialog_data();
    void confirmationDialog();
    void removalMovesToTrash();
    void closingDiscardsModels();
    void tenThousandItems();

private:
    std::unique_ptr<TestHome> m_home;
    std::shared_ptr<FakeSystem> m_system;
    std::unique_ptr<OverviewModel> m_overview;
};

void ToolsWindowTest::sidebar_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<QStringList>("titles");
    QTest::newRow("English") << false << QStringList{u"Overview"_s,      u"Clean Up"_s,
                                                     u"App Leftovers"_s, u"Large Files"_s,
                                                     u"Unused Apps"_s,   u"Screen Cleaning"_s,
                                                     u"App Updater"_s};
    QTest::newRow("Chinese") << true << QStringList{u"总览"_s,    u"清理"_s,       u"卸载残留"_s,
                                                    u"大文件"_s,  u"不用的应用"_s, u"清屏模式"_s,
                                                    u"应用更新"_s};
}

void ToolsWindowTest::sidebar()
{
    QFETCH(bool, zh);
    QFETCH(QStringList, titles);
    L10n::overrideForTesting(zh);
    std::unique_ptr<ToolsWindow> window(new ToolsWindow(m_system, *m_overview));
    QCOMPARE(window->windowTitle(), u"Quorvel"_s);
    QCOMPARE(window->size(), QSize(900, 620));
    QListWidget *list = window->sidebar();
    QStringList shownTitles;
    for (int row = 0; row < list->count(); ++row) {
        shownTitles.append(list->item(row)->text());
        QVERIFY2(!list->item(row)->icon().isNull(), qPrintable(list->item(row)->text()));
    }
    QCOMPARE(shownTitles, titles);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    QVERIFY(list->width() >= 170);
    QCOMPARE(list->currentRow(), 0);
}

void ToolsWindowTest::navigation_data()
{
    QTest::addColumn<ToolPage>("page");
    QTest::addColumn<int>("row");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QStringList>("sections"); // empty: not a clean-up page
    const QString clean = u"CleanListView"_s;
    QTest::newRow("overview") << ToolPage::overview << 0 << u"OverviewView"_s << QStringList{};
    QTest::newRow("cleanup") << ToolPage::cleanup << 1 << clean
                             << QStringList{u"App caches"_s, u"Logs & crash reports"_s,
                                            u"AI tools & models"_s, u"Developer junk"_s};
    QTest::newRow("leftovers") << ToolPage::leftovers << 2 << clean
                               << QStringList{u"App leftovers"_s};
    QTest::newRow("largeFiles") << ToolPage::largeFiles << 3 << clean
                                << QStringList{u"Large files"_s};
    QTest::newRow("unusedApps") << ToolPage::unusedApps << 4 << clean
                                << QStringList{u"Apps not opened for 6 months"_s};
    QTest::newRow("screen") << ToolPage::screen << 5 << u"ScreenCleanView"_s << QStringList{};
    QTest::newRow("updates") << ToolPage::updates << 6 << u"UpdatesView"_s << QStringList{};
}

void ToolsWindowTest::navigation()
{
    QFETCH(ToolPage, page);
    QFETCH(int, row);
    QFETCH(QString, kind);
    QFETCH(QStringList, sections);
    std::unique_ptr<ToolsWindow> window(new ToolsWindow(m_system, *m_overview));
    QPointer<QWidget> before = window->currentPage();

    Nav::shared().setPage(page);
    QCOMPARE(window->sidebar()->currentRow(), row);
    QCOMPARE(window->sidebar()->selectedItems().size(), 1);
    QWidget *detail = window->currentPage();
    QCOMPARE(QString::fromLatin1(detail->metaObject()->className()), kind);
    QCOMPARE(sectionTitles(detail), sections);
    QCOMPARE(detail == before, page == ToolPage::overview); // rebuilt on every change
    QTRY_VERIFY(page == ToolPage::overview || before.isNull());

    // And back the other way: the row picks the page.
    const int other = (row + 3) % 7;
    window->sidebar()->setCurrentRow(other);
    QCOMPARE(Nav::shared().page(), kAllToolPages[size_t(other)]);
    QVERIFY(window->currentPage() != detail);
    QCOMPARE(window->sidebar()->currentRow(), other);
}

void ToolsWindowTest::windowKeepsScanAcrossPages()
{
    writeFile(m_home->file(u"Library/Caches/keep.one/a"_s), 5000);
    writeFile(m_home->file(u"Library/Caches/keep.two/b"_s), 5000);
    Nav::shared().setPage(ToolPage::cleanup);
    std::unique_ptr<ToolsWindow> window(new ToolsWindow(m_system, *m_overview));
    CleanModel &model = window->cleanModel(ToolPage::cleanup);
    QVERIFY(!model.scanned() && !model.scanning());
    window->show();
    QVERIFY(model.scanning() || model.scanned());
    QVERIFY(waitIdle(model));
    const QString one = m_home->file(u"Library/Caches/keep.one"_s);
    QVERIFY(model.selected().contains(one));
    model.setSelected(one, false);
    const QList<CleanItem> items = model.items();

    Nav::shared().setPage(ToolPage::largeFiles);
    Nav::shared().setPage(ToolPage::cleanup);
    QVERIFY(!model.scanning());
    QCOMPARE(model.items().constData(), items.constData()); // the same list, not a rescan
    QVERIFY(!model.selected().contains(one));
    QWidget *section = Probe::section(window->currentPage(), u"App caches"_s);
    QVERIFY(section);
    CleanItemsModel *rows = rowsOf(section);
    QCOMPARE(rows->rowCount(), 2);
    for (int r = 0; r < rows->rowCount(); ++r) {
        const QModelIndex index = rows->index(r);
        const bool ticked = index.data(Qt::CheckStateRole).toInt() == Qt::Checked;
        QCOMPARE(ticked, index.data(CleanItemsModel::PathRole).toString() != one);
    }
    // The large-file page was shown for a moment and scans the fixture home; let it end.
    QVERIFY(waitIdle(window->cleanModel(ToolPage::largeFiles)));
}

void ToolsWindowTest::removalMovesToTrash()
{
    const QString caches = m_home->file(u"Library/Caches"_s);
    writeFile(caches + u"/com.example.one/blob"_s, 4096);
    writeFile(caches + u"/two.cache"_s, 8192);
    writeFile(caches + u"/disk.vmdk"_s, 4096); // the guard refuses this type
    const QString log = m_home->file(u"Library/Logs/Quorvel/removals.log"_s);
    const int logLines = lineCount(log);

    Nav::shared().setPage(ToolPage::cleanup);
    std::unique_ptr<ToolsWindow> window(new ToolsWindow(m_system, *m_overview));
    window->show();
    CleanModel &model = window->cleanModel(ToolPage::cleanup);
    QVERIFY(waitIdle(model));
    QCOMPARE(model.selected().size(), 3);
    qint64 bytes = 0;
    for (const CleanItem &item : model.items())
        bytes += item.bytes;

    QWidget *page = window->currentPage();
    QAbstractButton *remove = removeButton(page, kRemoveEn);
    QVERIFY(remove && remove->isEnabled());
    remove->click();
    QMessageBox *box = openBox();
    QVERIFY(box);
    QCOMPARE(box->text(), u"Move 3 item(s), "_s + Fmt::bytes(bytes) + u", to the Trash?"_s);
    const QList<QAbstractButton *> buttons = box->buttons();
    const auto destructive = std::find_if(buttons.begin(), buttons.end(), [&](auto *b) {
        return box->buttonRole(b) == QMessageBox::DestructiveRole;
    });
    QVERIFY(destructive != buttons.end());
    (*destructive)->click();
    QVERIFY(model.scanning());
    QVERIFY(waitIdle(model));

    const QString trash = m_home->file(u".local/share/Trash/files"_s);
    QVERIFY(QFileInfo::exists(trash + u"/com.example.one/blob"_s));
    QVERIFY(QFileInfo::exists(trash + u"/two.cache"_s));
    QVERIFY(!QFileInfo::exists(caches + u"/com.example.one"_s));
    QVERIFY(!QFileInfo::exists(caches + u"/two.cache"_s));
    QVERIFY(QFileInfo::exists(caches + u"/disk.vmdk"_s));
    QCOMPARE(lineCount(log), logLines + 2);

    // The summary replaces the status; the refused row stays, still ticked.
    const QStringList texts = visibleTexts(page);
    const auto summary = std::find_if(texts.begin(), texts.end(), [](const QString &t) {
        return t.startsWith(u"Moved 2 item(s) ("_s);
    });
    QVERIFY2(summary != texts.end(), qPrintable(texts.join(u" | "_s)));
    QVERIFY2(summary->contains(u") to the Trash.\nSkipped:\ndisk.vmdk: "_s), qPrintable(*summary));
    QCOMPARE(*summary, model.message().value_or(QString()));
    auto *rows = rowsOf(section(page, u"App caches"_s));
    QCOMPARE(rows->rowCount(), 1);
    QCOMPARE(rows->index(0).data(Qt::CheckStateRole).toInt(), int(Qt::Checked));
    QVERIFY(remove->isEnabled());
}

void ToolsWindowTest::closingDiscardsModels()
{
    Nav::shared().setPage(ToolPage::cleanup);
    auto *first = new ToolsWindow(m_system, *m_overview);
    first->show();
    QPointer<CleanModel> model = &first->cleanModel(ToolPage::cleanup);
    QPointer<AppUpdater> updater = &first->updater();
    QVERIFY(waitIdle(*model));
    QVERIFY(first->close());
    QTRY_VERIFY(model.isNull());
    QVERIFY(updater.isNull());

    std::unique_ptr<ToolsWindow> second(new ToolsWindow(m_system, *m_overview));
    QCOMPARE(second->sidebar()->currentRow(), 1); // the page survives, the models do not
    CleanModel &fresh = second->cleanModel(ToolPage::cleanup);
    QVERIFY(!fresh.scanned() && !fresh.scanning());
    QCOMPARE(visibleTexts(second->currentPage()).count(u"Not scanned yet."_s), 4);
    second->show();
    QVERIFY(fresh.scanning());
    QVERIFY(waitIdle(fresh));
    QCOMPARE(visibleTexts(second->currentPage()).count(u"Not scanned yet."_s), 0);
    QCOMPARE(visibleTexts(second->currentPage()).count(u"Nothing found."_s), 4);
}

// The clean-up page on fake services.
#include "ui/CleanListViewRemovalTests.inc"
#include "ui/CleanListViewTests.inc"

QTEST_MAIN(ToolsWindowTest)
#include "tst_toolswindow.moc"
