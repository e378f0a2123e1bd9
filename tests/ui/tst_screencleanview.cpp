#include "common/TestHome.h"
#include "core/screenclean/ScreenCleanMode.h"
#include "core/text/L10n.h"
#include "screenclean/FakeLock.h"
#include "ui/CleanPageProbe.h"
#include "ui/Theme.h"
#include "ui/pages/ScreenCleanView.h"
#include "ui/screenclean/OverlayWindows.h"
#include "ui/screenclean/ScreenCleanOverlay.h"

#include <QApplication>
#include <QLabel>
#include <QScreen>
#include <QtTest>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

// A mode on a fake lock and clock with the real black windows; nothing is ever scheduled
// to run, so the ten-minute end never interferes.
struct Rig
{
    QStringList log;
    FakeLock *lock = nullptr;
    double now = 0;
    OverlayWindows windows;
    std::unique_ptr<ScreenCleanMode> mode; // last: it stops while the windows still exist

    explicit Rig(bool trusted = true)
    {
        auto fake = std::make_unique<FakeLock>(log);
        lock = fake.get();
        lock->isTrusted = trusted;
        ScreenCleanMode::Services s;
        s.lock = std::move(fake);
        s.now = [this] { return now; };
        s.schedule = [](double, std::function<void()>) { return std::function<void()>([] {}); };
        mode = std::make_unique<ScreenCleanMode>(std::move(s));
        mode->setOverlayHost(&windows);
    }
};

std::unique_ptr<ScreenCleanView> shownPage(ScreenCleanMode &mode)
{
    auto page = std::make_unique<ScreenCleanView>(mode);
    page->resize(720, 620);
    page->show();
    return page;
}

QLabel *label(const QWidget *root, const QString &name)
{
    return root->findChild<QLabel *>(name);
}

bool boxShown(const QWidget *page)
{
    return page->findChild<QWidget *>(u"permissionBox"_s)->isVisible();
}

int liveOverlays()
{
    const QWidgetList all = QApplication::topLevelWidgets();
    return int(std::count_if(all.begin(), all.end(),
                             [](QWidget *w) { return qobject_cast<ScreenCleanOverlay *>(w); }));
}

} // namespace

class ScreenCleanViewTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_home = std::make_unique<TestHome>(); }
    void init() { L10n::overrideForTesting(false); }
    void page_data();
    void page();
    void permissionBox();
    void overlay_data();
    void overlay();
    void windowsPerScreen();

private:
    std::unique_ptr<TestHome> m_home;
};

void ScreenCleanViewTest::page_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<bool>("trusted");
    QTest::addColumn<QStringList>("texts");
    QTest::addColumn<QStringList>("calls"); // what a refused start asks of the lock
    QTest::addColumn<QString>("error");
    const QStringList en{
        u"Screen Cleaning Mode"_s,
        u"Blacks out the screen and locks the keyboard, trackpad and mouse buttons so you can "
        u"wipe the Mac without typing or clicking anything. Press Esc three times quickly to "
        u"exit; it also ends by itself after 10 minutes."_s,
        u"Start cleaning mode"_s};
    const QStringList enBox{u"Needs the Accessibility permission to block key presses."_s,
                            u"Request permission"_s, u"Open System Settings"_s};
    const QStringList zh{u"清屏模式"_s,
                         u"把屏幕变黑，并锁住键盘、触控板和鼠标按键，擦拭时不会误按。连按 3 次 "
                         u"Esc 退出，10 分钟后也会自动退出。"_s,
                         u"开始清屏"_s,
                         u"需要「辅助功能」权限才能拦截按键。"_s,
                         u"申请权限"_s,
                         u"打开系统设置"_s};
    const QStringList install{u"install"_s}, request{u"requestTrust"_s};
    QTest::newRow("en trusted") << false << true << en << install << kLockEn;
    QTest::newRow("en untrusted") << false << false << en + enBox << request << kPermissionEn;
    QTest::newRow("zh untrusted")
        << true << false << zh << request
        << u"请在「系统设置 → 隐私与安全性 → 辅助功能」里允许 Quorvel，然后再试。"_s;
}

void ScreenCleanViewTest::page()
{
    QFETCH(bool, zh);
    QFETCH(bool, trusted);
    QFETCH(QStringList, texts);
    QFETCH(QStringList, calls);
    QFETCH(QString, error);
    L10n::overrideForTesting(zh);
    Rig rig(trusted);
    rig.lock->accepts = false;
    const auto page = shownPage(*rig.mode);
    QCOMPARE(Probe::sorted(Probe::visibleTexts(page.get())), Probe::sorted(texts));
    QCOMPARE(boxShown(page.get()), !trusted);
    QVERIFY(rig.log.isEmpty()); // drawing the page asks the lock nothing but trust
    const QLabel *errorLabel = label(page.get(), u"error"_s);
    QVERIFY(!errorLabel->isVisible());

    QAbstractButton *start = Probe::button(page.get(), texts.at(2));
    start->click();
    QCOMPARE(rig.log, calls);
    QVERIFY(errorLabel->isVisible());
    QCOMPARE(errorLabel->text(), error);
    QCOMPARE(errorLabel->palette().color(QPalette::WindowText), Theme::poor());
    QVERIFY(errorLabel->height() >= errorLabel->heightForWidth(errorLabel->width())); // no cut
    QCOMPARE(boxShown(page.get()), !trusted);
    QVERIFY(!rig.mode->active());
    QVERIFY(rig.windows.windows().isEmpty());

    // A start that succeeds clears the message.
    rig.lock->isTrusted = rig.lock->accepts = true;
    start->click();
    QVERIFY(rig.mode->active());
    QVERIFY(!errorLabel->isVisible());
    QVERIFY(!boxShown(page.get()));
    rig.mode->stop();
}

void ScreenCleanViewTest::permissionBox()
{
    Rig rig(false);
    const auto page = shownPage(*rig.mode);
    Probe::button(page.get(), u"Request permission"_s)->click();
    QVERIFY(!rig.mode->active());
    QVERIFY(!label(page.get(), u"error"_s)->isVisible());
    // Opening the settings reaches nothing of the lock (and nothing at all on Linux).
    Probe::button(page.get(), u"Open System Settings"_s)->click();
    QCOMPARE(rig.log, QStringList{u"requestTrust"_s});

    // Granted elsewhere: the page learns it at its next change.
    rig.lock->isTrusted = true;
    QVERIFY(boxShown(page.get()));
    rig.mode->start();
    QVERIFY(!boxShown(page.get()));
    rig.mode->stop();

    // Withdrawn while the page was away: coming back shows the box again.
    page->hide();
    rig.lock->isTrusted = false;
    page->show();
    QVERIFY(boxShown(page.get()));
    rig.lock->isTrusted = true;
    page->appeared();
    QVERIFY(!boxShown(page.get()));
}

void ScreenCleanViewTest::overlay_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<QStringList>("texts");
    QTest::newRow("en") << false
                        << QStringList{u"Screen Cleaning Mode"_s,
                                       u"Keyboard, trackpad and mouse are locked. Wipe away."_s,
                                       u"Press Esc 3 times quickly to exit  (0/3)"_s};
    QTest::newRow("zh") << true
                        << QStringList{u"清屏模式"_s, u"键盘、触控板和鼠标已锁定，放心擦拭。"_s,
                                       u"连按 3 次 Esc 退出  (0/3)"_s};
}

void ScreenCleanViewTest::overlay()
{
    QFETCH(bool, zh);
    QFETCH(QStringList, texts);
    L10n::overrideForTesting(zh);
    Rig rig;
    rig.mode->start();
    ScreenCleanOverlay *overlay = rig.windows.windows().value(0);
    QVERIFY(overlay);
    QCOMPARE(Probe::visibleTexts(overlay), texts);
    // Black, with the text drawn dimly on it.
    const QImage image = overlay->grab().toImage();
    QCOMPARE(image.pixelColor(2, 2), QColor(Qt::black));
    QCOMPARE(image.pixelColor(image.width() - 3, image.height() - 3), QColor(Qt::black));
    QImage black(image.size(), image.format());
    black.fill(Qt::black);
    QVERIFY(image != black);

    // The hint counts the presses.
    const QLabel *hint = label(overlay, u"hint"_s);
    rig.now = 10;
    rig.lock->esc();
    QTRY_VERIFY(hint->text().endsWith(u"(1/3)"_s));
    QVERIFY(rig.mode->active());
}

void ScreenCleanViewTest::windowsPerScreen()
{
    const QList<QScreen *> screens = QGuiApplication::screens();
    QCOMPARE(screens.size(), 2); // set up by main()
    Rig rig;
    rig.mode->start();
    const QList<ScreenCleanOverlay *> windows = rig.windows.windows();
    QCOMPARE(windows.size(), screens.size());
    for (int i = 0; i < screens.size(); ++i) {
        const ScreenCleanOverlay *w = windows.at(i);
        QVERIFY(w->isVisible());
        QCOMPARE(w->screen(), screens.at(i));
        QCOMPARE(w->geometry(), screens.at(i)->geometry());
        // Above everything, and never the target of input.
        QVERIFY(w->windowFlags().testFlags(
            Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::X11BypassWindowManagerHint |
            Qt::WindowTransparentForInput | Qt::WindowDoesNotAcceptFocus));
    }
    QCOMPARE(rig.log, (QStringList{u"install"_s, u"hidePointer"_s}));
    rig.mode->stop();
    QCOMPARE(liveOverlays(), 0);

    // A failed start makes no window at all.
    rig.lock->accepts = false;
    rig.mode->start();
    QCOMPARE(liveOverlays(), 0);
}

int main(int argc, char **argv)
{
    // Two screens side by side, so that "one window per screen" is tested on more than one.
    QTemporaryDir config;
    const QString file = config.filePath(u"screens.json"_s);
    QFile json(file);
    if (!json.open(QIODevice::WriteOnly) || json.write(R"({"screens": [
            {"name": "left", "x": 0, "y": 0, "width": 1280, "height": 800},
            {"name": "right", "x": 1280, "y": 0, "width": 1920, "height": 1080}]})") < 0)
        return 2;
    json.close();
    qputenv("QT_QPA_PLATFORM", "offscreen:configfile=" + file.toLocal8Bit());
    QApplication app(argc, argv);
    QTEST_SET_MAIN_SOURCE_PATH
    ScreenCleanViewTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_screencleanview.moc"
