#include "common/TestHome.h"
#include "core/health/SystemStats.h"
#include "core/models/AppUpdater.h"
#include "core/models/CleanModel.h"
#include "core/models/Nav.h"
#include "core/models/OverviewModel.h"
#include "core/screenclean/ScreenCleanMode.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/words/CategoryWords.h"
#include "core/words/HealthTiles.h"
#include "health/FakeSources.h"
#include "platform/LaunchAtLogin.h"
#include "screenclean/FakeLock.h"
#include "support/FakeSystem.h"
#include "ui/HealthPanel.h"
#include "ui/QtTexts.h"
#include "ui/Theme.h"
#include "ui/ToolsWindow.h"
#include "ui/kit/SectionHeader.h"
#include "ui/kit/Spinner.h"
#include "ui/pages/CleanItemsView.h"
#include "ui/pages/CleanSection.h"
#include "ui/pages/OverviewView.h"
#include "ui/pages/RevealButton.h"
#include "ui/pages/ScreenCleanView.h"
#include "ui/pages/UpdatesView.h"
#include "ui/screenclean/OverlayWindows.h"
#include "ui/screenclean/ScreenCleanOverlay.h"

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QScreen>
#include <QtTest>

using namespace Qt::StringLiterals;
using Source = OutdatedApp::Source;
namespace Login = Platform::LaunchAtLogin;

Q_DECLARE_METATYPE(Source)
Q_DECLARE_METATYPE(CleanCategory)

namespace {

const QString kRemove = u"Move selected to Trash"_s;

template <typename T> T fetch(const char *column)
{
    return *static_cast<T *>(QTest::qData(column, qMetaTypeId<T>()));
}

// What a user sees under `root`: the visible labels' and buttons' texts.
QStringList texts(const QWidget *root)
{
    QStringList found;
    for (const QWidget *w : root->findChildren<QWidget *>()) {
        const QString text = w->property("text").toString(); // labels' and buttons'
        if (w->isVisibleTo(root) && !text.isEmpty())
            found << text;
    }
    return found;
}

// The visible button under `root` whose text is `text`, or only starts so.
QAbstractButton *button(const QWidget *root, const QString &text, bool prefix = false)
{
    for (QAbstractButton *b : root->findChildren<QAbstractButton *>())
        if (b->isVisibleTo(root) && (prefix ? b->text().startsWith(text) : b->text() == text))
            return b;
    return nullptr;
}

QMessageBox *openBox()
{
    for (QWidget *w : QApplication::topLevelWidgets())
        if (auto *box = qobject_cast<QMessageBox *>(w); box && box->isVisible())
            return box;
    return nullptr;
}

// Answers the open confirmation: 1 its destructive button, 0 Cancel, else that key.
void answer(int how)
{
    QMessageBox *box = openBox();
    QVERIFY(box);
    if (how > 1)
        return QTest::keyClick(box, Qt::Key(how));
    for (QAbstractButton *b : box->buttons())
        if ((box->buttonRole(b) == QMessageBox::DestructiveRole) == (how == 1))
            return b->click();
}

CleanSection *sectionOf(const QWidget *page, CleanCategory category)
{
    for (CleanSection *section : page->findChildren<CleanSection *>())
        if (section->category() == category)
            return section;
    return nullptr;
}

// A section's texts beyond its title and note, sorted.
QStringList sectionTexts(const QWidget *page, CleanCategory category)
{
    QStringList found = texts(sectionOf(page, category));
    found.removeOne(title(category));
    found.removeOne(note(category));
    found.sort();
    return found;
}

bool ticked(const QModelIndex &row)
{
    return row.data(Qt::CheckStateRole).toInt() == Qt::Checked;
}

bool idle(const CleanModel &model)
{
    return QTest::qWaitFor([&] { return model.scanned() && !model.scanning(); }, 10'000);
}

void writeFile(const QString &path, const QByteArray &data)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(data) == data.size());
}

// An overview page over fake measurements, shared with their jobs.
struct Disk
{
    QList<DiskCategory> cats;
    std::optional<TrashSize> trash; // none: unreadable
    std::atomic<int> scans{0}, trashReads{0}, empties{0};
};

struct Overview
{
    std::shared_ptr<Disk> disk = std::make_shared<Disk>();
    Fake machine;
    SystemStats stats{machine.sources()};
    OverviewModel model{services()};
    OverviewView view;

    explicit Overview(const System &system) : view(model, stats, system) { view.show(); }
    ~Overview()
    {
        Q_UNUSED(QTest::qWaitFor([&] { return !model.scanning(); }));
    }
    OverviewModel::Services services()
    {
        OverviewModel::Services s;
        s.categories = [disk = disk](const auto &) { return ++disk->scans, disk->cats; };
        s.trashSize = [disk = disk] { return ++disk->trashReads, disk->trash; };
        s.emptyTrash = [disk = disk](const auto &) { return ++disk->empties, TrashEmptyResult{}; };
        return s;
    }
};

// An updates page over a fake Homebrew and an empty inventory.
struct Updates
{
    QList<OutdatedApp> brew;
    std::atomic<int> listings{0}, upgrades{0};
    QStringList opened;
    AppUpdater updater{services()};
    UpdatesView view{updater, [this](const QString &p) { opened << p; }};

    Updates() { view.show(); }
    ~Updates() { Q_UNUSED(settled()); }
    AppUpdater::Services services()
    {
        AppUpdater::Services s;
        s.brewOutdated = [this] { return ++listings, brew; };
        s.applications = [] { return QList<AppInfo>{}; };
        s.brewPath = [] { return std::optional(u"/fake/brew"_s); };
        s.upgrade = [this](auto &) { return ++upgrades, std::optional(u"done"_s); };
        return s;
    }
    bool settled()
    {
        return QTest::qWaitFor([&] { return !updater.scanning(); });
    }
};

// Screen cleaning on a fake lock with the real black windows; nothing is ever scheduled.
struct Screen
{
    QStringList log;
    FakeLock *lock = new FakeLock(log);
    OverlayWindows windows;
    ScreenCleanMode mode{{std::unique_ptr<FakeLock>(lock), [] { return 0.0; },
                          [](double, auto) { return std::function<void()>([] {}); }}};

    explicit Screen(bool trusted) { lock->isTrusted = trusted, mode.setOverlayHost(&windows); }
};

} // namespace

class UiTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> m_home;
    std::shared_ptr<FakeSystem> m_system;
    std::unique_ptr<OverviewModel> m_overview;

    QString home(const QString &relative) const { return m_home->file(relative); }
    // The window on the clean-up page over the fixture home, scanned.
    std::unique_ptr<ToolsWindow> scannedCleanup()
    {
        Nav::shared().setPage(ToolPage::cleanup);
        auto window = std::make_unique<ToolsWindow>(m_system, *m_overview);
        window->show();
        if (!idle(window->cleanModel(ToolPage::cleanup)))
            qFatal("the clean-up scan never ended");
        return window;
    }

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
        for (const QString &folder : {u"Library"_s, u".local"_s, u"cfg"_s})
            QVERIFY(QDir(home(folder)).removeRecursively());
        qputenv("XDG_CONFIG_HOME", home(u"cfg"_s).toUtf8());
    }
    void cleanup()
    {
        while (QMessageBox *box = openBox())
            delete box;
    }

    // Each sample refills the same labels: a warning turns a tile's value and bar orange and
    // goes with its figures; the grade takes its colour. Open closes only a popup; Quit quits.
    void panel()
    {
        Fake machine;
        machine.pressure = 4;
        machine.used = 4 * GB;
        machine.battery = BatteryReading{true, 15, false, true};
        SystemStats stats(machine.sources());
        QStringList calls;
        HealthPanel panel(
            stats, [&] { calls << u"open"_s; }, [&] { calls << u"quit"_s; });
        stats.samplePass();
        const QList<QLabel *> labels = panel.findChildren<QLabel *>();
        const auto part = [&](const QString &tile, const QString &name) {
            return panel.findChild<QWidget *>(tile)->findChild<QWidget *>(name);
        };
        const auto bar = [&](const QString &tile) {
            const QWidget *b = part(tile, u"bar"_s);
            return u"%1 %2"_s.arg(b->property("ratio").toDouble())
                .arg(b->property("color").value<QColor>() == Theme::fair() ? u"warn" : u"-");
        };
        const auto *memory = part(u"memoryTile"_s, u"value"_s);
        const auto *grade = panel.findChild<QLabel *>(u"grade"_s);
        QCOMPARE(memory->palette().color(QPalette::WindowText), Theme::fair());
        QCOMPARE(bar(u"memoryTile"_s) + u", "_s + bar(u"batteryTile"_s), u"0.25 warn, 0.15 -"_s);
        QCOMPARE(grade->text(), HealthTiles::gradeWord(HealthGrade::poor));
        QCOMPARE(grade->palette().color(QPalette::WindowText), Theme::poor());
        machine.pressure = 2;
        machine.battery->onAC = false;
        stats.samplePass();
        QCOMPARE(bar(u"batteryTile"_s), u"0.15 warn"_s);
        QCOMPARE(grade->palette().color(QPalette::WindowText), Theme::fair());
        machine.pressure = 1;
        stats.samplePass();
        QCOMPARE(memory->palette().color(QPalette::WindowText),
                 panel.palette().color(QPalette::WindowText));
        QCOMPARE(grade->palette().color(QPalette::WindowText), Theme::good());
        QCOMPARE(panel.findChildren<QLabel *>(), labels);
        for (const Qt::WindowType type : {Qt::Widget, Qt::Popup}) {
            panel.setWindowFlags(type);
            panel.show();
            panel.findChild<QAbstractButton *>(u"openTools"_s)->click();
            QCOMPARE(panel.isVisible(), type == Qt::Widget);
        }
        panel.findChild<QAbstractButton *>(u"quit"_s)->click();
        QCOMPARE(calls, (QStringList{u"open"_s, u"open"_s, u"quit"_s}));
    }

    // Nav moves the row and a new detail together, and the row moves Nav; the sidebar speaks.
    void navigation()
    {
        L10n::overrideForTesting(true);
        ToolsWindow window(m_system, *m_overview);
        const char *kinds[] = {"OverviewView",  "CleanListView",   "CleanListView", "CleanListView",
                               "CleanListView", "ScreenCleanView", "UpdatesView"};
        for (int row = 0; row < 7; ++row) {
            const ToolPage page = kAllToolPages[size_t(row)];
            QCOMPARE(window.sidebar()->item(row)->text(), title(page));
            QPointer<QWidget> before = window.currentPage();
            Nav::shared().setPage(page);
            QCOMPARE(window.sidebar()->currentRow(), row);
            QCOMPARE(window.currentPage()->metaObject()->className(), kinds[row]);
            QList<CleanCategory> sections;
            for (const CleanSection *s : window.currentPage()->findChildren<CleanSection *>())
                sections << s->category();
            QCOMPARE(sections, cleanCategories(page).value_or(QList<CleanCategory>{}));
            QTRY_VERIFY(row == 0 || before.isNull());
            window.sidebar()->setCurrentRow((row + 3) % 7);
            QCOMPARE(Nav::shared().page(), kAllToolPages[size_t((row + 3) % 7)]);
        }
    }

    // A page scans on first appearance only; its sections say why they are empty or show
    // their size and All/None; the bar follows the scan and the ticked sum.
    void cleanPageStates()
    {
        writeFile(home(u"Library/Caches/a.cache"_s), QByteArray(4096, 'a'));
        writeFile(home(u"Library/Caches/b.cache"_s), QByteArray(8192, 'b'));
        Nav::shared().setPage(ToolPage::cleanup);
        ToolsWindow window(m_system, *m_overview);
        CleanModel &model = window.cleanModel(ToolPage::cleanup);
        QWidget *page = window.currentPage();
        QCOMPARE(sectionTexts(page, CleanCategory::ai), QStringList{u"Not scanned yet."_s});
        Nav::shared().setPage(ToolPage::overview);
        window.show();
        QVERIFY(!model.scanning()); // neither building nor another page is appearing
        Nav::shared().setPage(ToolPage::cleanup);
        page = window.currentPage();
        QVERIFY(sectionTexts(page, CleanCategory::ai).value(0).startsWith(u"Scanning… "_s));
        QVERIFY(page->findChild<Spinner *>()->isRunning() && !button(page, u"Scan"_s)->isEnabled());
        QVERIFY(idle(model));
        QVERIFY(!page->findChild<Spinner *>()->isRunning() && button(page, u"Scan"_s)->isEnabled());
        QCOMPARE(sectionTexts(page, CleanCategory::ai), QStringList{u"Nothing found."_s});
        qint64 caches = 0;
        for (const CleanItem &item : model.items(CleanCategory::userCache))
            caches += item.bytes;
        QCOMPARE(sectionTexts(page, CleanCategory::userCache),
                 (QStringList{Fmt::bytes(caches), u"All"_s, u"None"_s})); // sorted
        QAbstractButton *remove = button(page, kRemove, true);
        QVERIFY(remove->isEnabled() && remove->text() == kRemove + u" · "_s + Fmt::bytes(caches));
        model.setSelected(QSet<QString>{});
        QVERIFY(!remove->isEnabled() && remove->text() == kRemove);
        // Coming back shows the same scan and ticks, without another.
        const QList<CleanItem> items = model.items();
        Nav::shared().setPage(ToolPage::overview);
        Nav::shared().setPage(ToolPage::cleanup);
        QVERIFY(!model.scanning() && model.items().constData() == items.constData());
        const CleanItemsModel *rows =
            sectionOf(window.currentPage(), CleanCategory::userCache)->view()->rows();
        QVERIFY(rows->rowCount() == 2 && !ticked(rows->index(0)) && !ticked(rows->index(1)));
        model.setSelected(items.first().path, true);
        button(window.currentPage(), u"Scan"_s)->click();
        QVERIFY(!button(window.currentPage(), kRemove, true)->isEnabled());
        QVERIFY(idle(model));
    }

    // All and None touch only their own section, and repaint the ticks in place.
    void allNone_data()
    {
        QTest::addColumn<CleanCategory>("category");
        QTest::addColumn<QString>("button");
        QTest::addColumn<QStringList>("expected");
        const CleanCategory caches = CleanCategory::userCache, logs = CleanCategory::logs;
        QTest::newRow("None, caches") << caches << u"None"_s << QStringList{u"Logs/y"_s};
        QTest::newRow("None, logs") << logs << u"None"_s << QStringList{u"Caches/b"_s};
        QTest::newRow("All, caches")
            << caches << u"All"_s << QStringList{u"Caches/a"_s, u"Caches/b"_s, u"Logs/y"_s};
    }
    void allNone()
    {
        QFETCH(CleanCategory, category);
        for (const QString &name : {u"Caches/a"_s, u"Caches/b"_s, u"Logs/x"_s, u"Logs/y"_s})
            writeFile(home(u"Library/"_s + name), "data");
        const auto window = scannedCleanup();
        CleanModel &model = window->cleanModel(ToolPage::cleanup);
        model.setSelected(home(u"Library/Caches/a"_s), false);
        model.setSelected(home(u"Library/Logs/x"_s), false);
        QSet<QString> paths;
        for (const QString &name : fetch<QStringList>("expected"))
            paths << home(u"Library/"_s + name);
        QWidget *page = window->currentPage();
        QSignalSpy resets(sectionOf(page, category)->view()->rows(),
                          &QAbstractItemModel::modelReset);
        button(sectionOf(page, category), fetch<QString>("button"))->click();
        QCOMPARE(model.selected(), paths);
        for (const CleanSection *s : page->findChildren<CleanSection *>()) {
            for (int r = 0; r < s->view()->rows()->rowCount(); ++r) {
                const QModelIndex row = s->view()->rows()->index(r);
                QCOMPARE(ticked(row),
                         paths.contains(row.data(CleanItemsModel::PathRole).toString()));
            }
        }
        QCOMPARE(resets.count(), 0);
    }

    // Return and Cancel move nothing; the destructive choice moves exactly the ticked items
    // to the Trash and the log, leaving an unticked one and one the guard refuses.
    void removal()
    {
        const QString caches = home(u"Library/Caches/"_s);
        for (const QString &name : {u"one/blob"_s, u"two.cache"_s, u"kept.cache"_s, u"x.vmdk"_s})
            writeFile(caches + name, QByteArray(4096, 'x'));
        const auto window = scannedCleanup();
        CleanModel &model = window->cleanModel(ToolPage::cleanup);
        model.setSelected(caches + u"kept.cache"_s, false);
        qint64 bytes = 0;
        for (const CleanItem &item : model.selectedItems())
            bytes += item.bytes;
        for (const int how : {int(Qt::Key_Return), 0, 1}) {
            button(window->currentPage(), kRemove, true)->click();
            QCOMPARE(openBox()->text(),
                     u"Move 3 item(s), "_s + Fmt::bytes(bytes) + u", to the Trash?"_s);
            answer(how);
            QTRY_VERIFY(!openBox());
            QVERIFY(idle(model));
            QCOMPARE(QFileInfo::exists(caches + u"two.cache"_s), how != 1);
        }
        const QString trash = home(u".local/share/Trash/files/"_s);
        QVERIFY(QFileInfo::exists(trash + u"one/blob"_s) &&
                QFileInfo::exists(trash + u"two.cache"_s));
        for (const QString &stays : {u"kept.cache"_s, u"x.vmdk"_s})
            QVERIFY(QFileInfo::exists(caches + stays) && !QFileInfo::exists(trash + stays));
        QFile log(home(u"Library/Logs/Quorvel/removals.log"_s));
        QVERIFY(log.open(QIODevice::ReadOnly) && log.readAll().count('\n') == 2);
        QVERIFY(texts(window->currentPage()).contains(model.message().value_or(u"-"_s)));
    }

    // The ring's centre follows the statistics; the legend, its hint and Scan follow the
    // folder scan; coming back re-measures the Trash only.
    void overviewDisk()
    {
        Overview page(*m_system);
        const auto shows = [&](const QString &text) { return texts(&page.view).contains(text); };
        QVERIFY(shows(u"v1.2"_s) && shows(u"Press Scan to measure folder sizes."_s));
        page.machine.disk = {2000 * GB, 125 * GB};
        page.stats.samplePass();
        QVERIFY(shows(Fmt::bytes(125 * GB)) && shows(u"of "_s + Fmt::bytes(2000 * GB)));
        page.disk->cats = {{u"desktop"_s, u"Desktop"_s, 4096}};
        QAbstractButton *scan = button(&page.view, u"Rescan"_s);
        page.view.appeared();
        QCOMPARE(texts(&page.view).filter(u"Measuring"_s).size(), 1);
        QVERIFY(!scan->isEnabled() && scan->text() == u"Scanning…"_s);
        QTRY_VERIFY(shows(u"Desktop"_s) && shows(Fmt::bytes(4096)));
        QVERIFY(scan->isEnabled() && scan->text() == u"Rescan"_s);
        QVERIFY(texts(&page.view).filter(u"Measuring"_s).isEmpty());
        QTRY_COMPARE(page.disk->trashReads.load(), 1);
        page.disk->trash = TrashSize{8192, 5, {}};
        page.view.appeared();
        QTRY_VERIFY(shows(u"5 item(s)"_s));
        QCOMPARE(page.disk->scans.load(), 1);
        page.disk->cats = {{u"other"_s, u"Other"_s, 1'000'000}};
        scan->click();
        QTRY_VERIFY(shows(u"Other"_s) && !shows(u"Desktop"_s)); // replaced, not added to
    }

    // The Trash box's three states, and Empty Trash behind a destructive confirmation.
    void trash_data()
    {
        QTest::addColumn<int>("state");  // 0 not measured, 1 known, 2 unreadable
        QTest::addColumn<int>("answer"); // as answer() takes it
        QTest::newRow("not measured, cancelled") << 0 << 0;
        QTest::newRow("known, emptied") << 1 << 1;
        QTest::newRow("unreadable, emptied") << 2 << 1;
        QTest::newRow("unreadable, Escape") << 2 << int(Qt::Key_Escape);
    }
    void trash()
    {
        QFETCH(int, state);
        Overview page(*m_system);
        if (state == 1)
            page.disk->trash = TrashSize{2'500'000, 3, {}};
        if (state > 0) {
            page.model.refreshTrash();
            QTRY_VERIFY(page.model.trash() || page.model.trashUnreadable());
        }
        const QStringList marks{u"…"_s, u"3 item(s)"_s, u"Size unavailable"_s};
        for (int i = 0; i < 3; ++i)
            QCOMPARE(texts(&page.view).contains(marks[i]), i == state);
        const qsizetype asked = m_system->asked().count(u"full disk access"_s);
        if (QAbstractButton *grant = button(&page.view, u"Grant Full Disk Access…"_s))
            grant->click();
        QCOMPARE(m_system->asked().count(u"full disk access"_s) - asked, state == 2 ? 1 : 0);
        button(&page.view, u"Empty Trash"_s)->click();
        answer(fetch<int>("answer"));
        QTRY_VERIFY(!openBox());
        const bool emptied = fetch<int>("answer") == 1;
        QTRY_COMPARE(texts(&page.view).contains(u"Trash emptied."_s), emptied);
        QTest::qWait(20);
        QCOMPARE(page.disk->empties.load(), emptied ? 1 : 0);
    }

    // The switch shows what the system holds, so a refused change springs back.
    void loginSwitch()
    {
        for (const bool accepts : {true, false})
            for (const bool initially : {false, true}) {
                m_system->loginRefusal.reset();
                Q_UNUSED(m_system->setLoginItem(initially));
                if (!accepts)
                    m_system->loginRefusal = u"no"_s;
                Overview page(*m_system);
                auto *box =
                    qobject_cast<QCheckBox *>(button(&page.view, u"Start Quorvel at login"_s));
                QCOMPARE(box->isChecked(), initially);
                box->click();
                QVERIFY(box->isChecked() == (accepts != initially) &&
                        m_system->loginItemEnabled() == box->isChecked());
            }
    }

    // Homebrew rows upgrade through the updater, the others hand over to an application; a
    // check disables Check now and is not repeated on return.
    void updates_data()
    {
        QTest::addColumn<Source>("source");
        QTest::addColumn<QString>("app"); // empty: the bundle is unknown
        QTest::addColumn<QString>("action");
        const QString app = u"/Applications/Lumen.app"_s, open = u"Open app to update"_s;
        QTest::newRow("formula") << Source::brewFormula << QString() << u"Upgrade"_s;
        QTest::newRow("App Store") << Source::appStore << app << u"Open App Store"_s;
        QTest::newRow("appcast") << Source::sparkle << app << open;
        QTest::newRow("appcast, no bundle") << Source::sparkle << QString() << open;
    }
    void updates()
    {
        QFETCH(Source, source);
        QFETCH(QString, app);
        Updates page;
        page.brew = {{u"id"_s, u"Lumen"_s, u"1.0"_s, u"2.0"_s, source,
                      app.isEmpty() ? std::nullopt : std::optional(app)}};
        page.view.appeared();
        QAbstractButton *check = button(&page.view, u"Check now"_s);
        QVERIFY(page.view.findChild<Spinner *>()->isRunning() && !check->isEnabled());
        QVERIFY(page.settled());
        QVERIFY(check->isEnabled() && !page.view.findChild<Spinner *>()->isRunning());
        button(&page.view, fetch<QString>("action"))->click();
        const bool brew = source == Source::brewFormula || source == Source::brewCask;
        QTRY_COMPARE(button(&page.view, fetch<QString>("action")) == nullptr, brew);
        page.view.appeared(); // coming back, even to an emptied list, checks nothing
        QTest::qWait(20);
        QCOMPARE(page.upgrades.load(), brew ? 1 : 0);
        const bool opens = source == Source::sparkle && !app.isEmpty();
        QCOMPARE(page.opened, opens ? QStringList{app} : QStringList{});
        QCOMPARE(page.listings.load(), 1);
        check->click();
        QVERIFY(page.updater.scanning());
    }

    void screenPage_data()
    {
        QTest::addColumn<bool>("trusted");
        QTest::addColumn<QString>("error");
        QTest::newRow("trusted") << true << kLockEn;
        QTest::newRow("untrusted") << false << kPermissionEn;
    }
    // A refused start shows why and makes no window; one that succeeds clears the message.
    // The box only asks for the permission; trust is read again whenever the page shows.
    void screenPage()
    {
        QFETCH(bool, trusted);
        Screen rig(trusted);
        rig.lock->accepts = false;
        ScreenCleanView page(rig.mode);
        page.show();
        const QWidget *box = page.findChild<QWidget *>(u"permissionBox"_s);
        QCOMPARE(box->isVisible(), !trusted);
        const auto *message = page.findChild<QLabel *>(u"error"_s);
        QVERIFY(!message->isVisible() && rig.log.isEmpty());
        if (!trusted) {
            button(&page, u"Request permission"_s)->click();
            button(&page, u"Open System Settings"_s)->click();
            QVERIFY(rig.log == QStringList{u"requestTrust"_s} && !message->isVisible());
        }
        QAbstractButton *start = button(&page, u"Start cleaning mode"_s);
        start->click();
        QCOMPARE(rig.log.last(), trusted ? u"install"_s : u"requestTrust"_s);
        QVERIFY(message->isVisible() && message->text() == fetch<QString>("error"));
        QVERIFY(!rig.mode.active() && rig.windows.windows().isEmpty());
        if (!trusted) {
            page.hide();
            rig.lock->isTrusted = true;
            page.show();
            QVERIFY(!box->isVisible());
        }
        rig.lock->isTrusted = rig.lock->accepts = true;
        start->click();
        QVERIFY(rig.mode.active() && !message->isVisible() && !box->isVisible());
        // One black window per screen, on top, never taking input, counting Esc.
        const QList<QScreen *> screens = QGuiApplication::screens();
        const QList<ScreenCleanOverlay *> windows = rig.windows.windows();
        QCOMPARE(windows.size(), screens.size());
        for (qsizetype i = 0; i < screens.size(); ++i) {
            QVERIFY(windows[i]->isVisible() && windows[i]->geometry() == screens[i]->geometry());
            QVERIFY(windows[i]->windowFlags().testFlags(Qt::WindowStaysOnTopHint |
                                                        Qt::WindowTransparentForInput));
        }
        QCOMPARE(windows[0]->grab().toImage().pixelColor(2, 2), QColor(Qt::black));
        rig.lock->esc();
        QTRY_VERIFY(windows[0]->findChild<QLabel *>(u"hint"_s)->text().endsWith(u"(1/3)"_s));
        QPointer<ScreenCleanOverlay> first = windows[0];
        rig.mode.stop();
        QVERIFY(first.isNull() && rig.windows.windows().isEmpty());
    }

    void loginItem()
    {
#ifndef Q_OS_LINUX
        QSKIP("the system's login item would register this test binary for the user");
#endif
        const auto user = [] { return Locations::fromEnvironment().userFolders(); };
        const QString entry = home(u"cfg/autostart/quorvel.desktop"_s);
        QVERIFY(!Login::enabled(user()));
        QCOMPARE(Login::set(user(), true), std::nullopt);
        QVERIFY(Login::enabled(user()));
        QFile file(entry);
        const QByteArray exec = "\nExec=" + QCoreApplication::applicationFilePath().toUtf8();
        QVERIFY(file.open(QIODevice::ReadOnly) && file.readAll().contains(exec + '\n'));
        QCOMPARE(Login::execValue(u"/a b/\"`$\\%"_s), u"\"/a b/\\\\\"\\\\`\\\\$\\\\\\\\%%\""_s);
        QVERIFY(!(QFile::permissions(home(u"cfg"_s)) & QFile::ReadOther));
        QCOMPARE(Login::set(user(), true), std::nullopt);
        QCOMPARE(Login::set(user(), false), std::nullopt);
        QVERIFY(!QFileInfo::exists(entry) && !Login::enabled(user()));
        QCOMPARE(Login::set(user(), false), std::nullopt);
        // Session managers skip an entry that is hidden or switched off.
        const QByteArray plain = "[Desktop Entry]\nType=Application\nExec=q\n";
        const std::pair<QByteArray, bool> entries[] = {
            {plain, true},
            {plain + "Hidden=true\n", false},
            {plain + "X-GNOME-Autostart-enabled=false\n", false},
            {plain + "[Desktop Action x]\nHidden=true\n", true},
            {"[Other]\nExec=q\n", false}};
        for (const auto &[text, on] : entries) {
            writeFile(entry, text);
            QVERIFY2(Login::enabled(user()) == on, text.constData());
        }
        // A file where the autostart folder must go: the refusal is reported, it stays off.
        QVERIFY(QDir(home(u"cfg/autostart"_s)).removeRecursively());
        writeFile(home(u"cfg/autostart"_s), "file");
        QVERIFY(!Login::set(user(), true).value_or(QString()).isEmpty() && !Login::enabled(user()));
    }

    // The title leads; only with items do the size (above 0), All and None follow, after
    // the flexible space.
    void sectionHeader_data()
    {
        QTest::addColumn<QList<qint64>>("sizes");
        QTest::addColumn<QStringList>("trailing");
        const QStringList both{u"All"_s, u"None"_s};
        QTest::newRow("no items") << QList<qint64>{} << QStringList{};
        QTest::newRow("sized") << QList<qint64>{4000, 1000} << QStringList{Fmt::bytes(5000)} + both;
        QTest::newRow("sizeless") << QList<qint64>{0, 0} << both;
    }
    void sectionHeader()
    {
        QFETCH(QList<qint64>, sizes);
        CleanModel model({CleanCategory::logs}, CleanModel::Services::real(m_system));
        CleanSection section(model, CleanCategory::logs);
        QList<CleanItem> items;
        for (const qint64 bytes : sizes)
            items.emplace_back().bytes = bytes;
        section.setItems(items);
        section.resize(600, 300);
        section.show();
        QMap<int, QString> order; // the visible texts by their left edge
        for (QWidget *w : section.findChild<SectionHeader *>()->findChildren<QWidget *>())
            if (w->isVisible())
                order.insert(w->x(), w->property("text").toString());
        QCOMPARE(order.values(),
                 QStringList{title(CleanCategory::logs)} + fetch<QStringList>("trailing"));
        QVERIFY(order.size() == 1 || order.keys()[1] > 300);
    }

    // Qt's own Cancel speaks the interface language in a destructive confirmation.
    void confirmationLanguage()
    {
        for (const auto &[zh, cancel] : {std::pair(true, u"取消"_s), {false, u"Cancel"_s}}) {
            L10n::overrideForTesting(zh); // English last: the later tests run in it
            QVERIFY(QtTexts::follow());
            Overview page(*m_system);
            button(&page.view, L10n::pick(u"Empty Trash"_s, u"清空废纸篓"_s))->click();
            QCOMPARE(openBox()->button(QMessageBox::Cancel)->text(), cancel);
            cleanup();
        }
    }

    // Space ticks the current row and a click on the tick toggles it, one on the text does
    // not. The reveal icon, the key, the row's menu and Tab to the real button (named for
    // screen readers) show the row's own item. The sidebar keeps its highlight; the window's
    // models die with it.
    void rows()
    {
        for (const QString &name : {u"one"_s, u"two"_s, u"three"_s})
            writeFile(home(u"Library/Caches/"_s + name), "data");
        auto window = scannedCleanup();
        const QSet<QString> &selected = window->cleanModel(ToolPage::cleanup).selected();
        CleanSection *section = sectionOf(window->currentPage(), CleanCategory::userCache);
        CleanItemsView *view = section->view();
        QTest::keyClick(view, Qt::Key_Down);
        const QModelIndex row = view->model()->index(1, 0);
        const QString path = row.data(CleanItemsModel::PathRole).toString();
        QTest::keyClick(view, Qt::Key_Space);
        QVERIFY(view->currentIndex() == row && !ticked(row) && ticked(row.siblingAtRow(0)));
        const QRect rect = view->visualRect(row);
        for (const QPoint at : {rect.center(), CleanItemDelegate::tickRect(rect).center()}) {
            QVERIFY(!selected.contains(path) && selected.size() == 2);
            QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, at);
        }
        const qsizetype before = m_system->asked().size();
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {},
                          CleanItemDelegate::revealRect(rect).center());
        QCOMPARE(selected.size(), 3);
        QListWidget *bar = window->sidebar(); // a Ctrl+click keeps the page's highlight
        QTest::mouseClick(bar->viewport(), Qt::LeftButton, Qt::ControlModifier,
                          bar->visualItemRect(bar->item(1)).center());
        QCOMPARE(bar->selectedItems(), QList{bar->item(1)});
        auto *reveal = section->findChild<RevealButton *>();
        QAccessibleInterface *named = QAccessible::queryAccessibleInterface(reveal);
        QVERIFY(named->text(QAccessible::Name) == u"Show in Finder"_s &&
                named->parent()->indexOfChild(named) >= 0); // in the tree a reader walks
        QTest::keyClick(view, Qt::Key_R, Qt::ControlModifier | Qt::ShiftModifier);
        QContextMenuEvent menuKey(QContextMenuEvent::Keyboard, {}, {});
        QApplication::sendEvent(view, &menuKey);
        if (auto *menu = view->findChild<QMenu *>(); menu && menu->actions().size() == 1)
            menu->actions().first()->trigger();
        view->setFocus(); // the click above focused the sidebar
        QTest::keyClick(view, Qt::Key_Tab);
        QCOMPARE(window->focusWidget(), reveal);
        QTest::keyClick(reveal, Qt::Key_Space);
        QCOMPARE(m_system->asked().mid(before), QStringList(4, u"reveal "_s + path));
        QPointer<AppUpdater> updater = &window->updater();
        QPointer<CleanModel> model = &window->cleanModel(ToolPage::cleanup);
        QVERIFY(window.release()->close());
        QTRY_VERIFY(model.isNull() && updater.isNull());
    }
};

QTEST_MAIN(UiTest)
#include "tst_ui.moc"
