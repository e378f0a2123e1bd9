#pragma once

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

inline const QString kRemove = u"Move selected to Trash"_s;

template <typename T> T fetch(const char *column)
{
    return *static_cast<T *>(QTest::qData(column, qMetaTypeId<T>()));
}

// What a user sees under `root`: the visible labels' and buttons' texts.
inline QStringList texts(const QWidget *root)
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
inline QAbstractButton *button(const QWidget *root, const QString &text, bool prefix = false)
{
    for (QAbstractButton *b : root->findChildren<QAbstractButton *>())
        if (b->isVisibleTo(root) && (prefix ? b->text().startsWith(text) : b->text() == text))
            return b;
    return nullptr;
}

inline QMessageBox *openBox()
{
    for (QWidget *w : QApplication::topLevelWidgets())
        if (auto *box = qobject_cast<QMessageBox *>(w); box && box->isVisible())
            return box;
    return nullptr;
}

// Answers the open confirmation: 1 its destructive button, 0 Cancel, else that key.
inline void answer(int how)
{
    QMessageBox *box = openBox();
    QVERIFY(box);
    if (how > 1)
        return QTest::keyClick(box, Qt::Key(how));
    for (QAbstractButton *b : box->buttons())
        if ((box->buttonRole(b) == QMessageBox::DestructiveRole) == (how == 1))
            return b->click();
}

inline CleanSection *sectionOf(const QWidget *page, CleanCategory category)
{
    for (CleanSection *section : page->findChildren<CleanSection *>())
        if (section->category() == category)
            return section;
    return nullptr;
}

// A section's texts beyond its title and note, sorted.
inline QStringList sectionTexts(const QWidget *page, CleanCategory category)
{
    QStringList found = texts(sectionOf(page, category));
    found.removeOne(title(category));
    found.removeOne(note(category));
    found.sort();
    return found;
}

inline bool ticked(const QModelIndex &row)
{
    return row.data(Qt::CheckStateRole).toInt() == Qt::Checked;
}

inline bool idle(const CleanModel &model)
{
    return QTest::qWaitFor([&] { return model.scanned() && !model.scanning(); }, 10'000);
}

inline void writeFile(const QString &path, const QByteArray &data)
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

// The temporary home, the shared fake machine and the Overview model every window test
// uses; the test classes call setUp(), reset() and tidy() from initTestCase(), init() and
// cleanup().
class UiFixture
{
protected:
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

    void setUp()
    {
        m_home = std::make_unique<TestHome>();
        m_system = std::make_shared<FakeSystem>(m_home->where());
        m_overview = std::make_unique<OverviewModel>(OverviewModel::Services::real(m_system));
    }
    void reset()
    {
        L10n::overrideForTesting(false);
        Nav::shared().setPage(ToolPage::overview);
        for (const QString &folder : {u"Library"_s, u".local"_s, u"cfg"_s})
            QVERIFY(QDir(home(folder)).removeRecursively());
        qputenv("XDG_CONFIG_HOME", home(u"cfg"_s).toUtf8());
    }
    void tidy()
    {
        while (QMessageBox *box = openBox())
            delete box;
    }
};
