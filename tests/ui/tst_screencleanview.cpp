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
#include <QImage>
#include <QLabel>
#include <QLayout>
#include <QScreen>
#include <QSet>
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
    std::unique_ptr<ScreenCleanMode> mode;

    explicit Rig(bool trusted = true, bool accepts = true)
    {
        auto fake = std::make_unique<FakeLock>(log);
        lock = fake.get();
        lock->isTrusted = trusted;
        lock->accepts = accepts;
        ScreenCleanMode::Services s;
        s.lock = std::move(fake);
        s.now = [this] { return now; };
        s.schedule = [](double, std::function<void()>) { return std::function<void()>([] {}); };
        mode = std::make_unique<ScreenCleanMode>(std::move(s));
        mode->setOverlayHost(&windows);
    }
    ~Rig() { mode.reset(); } // stops while the windows' host still exists
};

std::unique_ptr<ScreenCleanView> shownPage(ScreenCleanMode &mode)
{
    auto page = std::make_unique<ScreenCleanView>(mode);
    page->resize(720, 620);
    page->show();
    return page;
}

QStringList expectedTexts(bool zh, bool trusted)
{
    QStringList texts;
    if (zh) {
        texts << u"清屏模式"_s
              << u"把屏幕变黑，并锁住键盘、触控板和鼠标按键，擦拭时不会误按。连按 3 次 Esc "
                 u"退出，10 分钟后也会自动退出。"_s
              << u"开始清屏"_s;
        if (!trusted)
            texts << u"需要「辅助功能」权限才能拦截按键。"_s << u"申请权限"_s << u"打开系统设置"_s;
    } else {
        texts << u"Screen Cleaning Mode"_s
              << u"Blacks out the screen and locks the keyboard, trackpad and mouse buttons so you "
                 u"can wipe the Mac without typing or clicking anything. Press Esc three times "
                 u"quickly to exit; it also ends by itself after 10 minutes."_s
              << u"Start cleaning mode"_s;
        if (!trusted)
            texts << u"Needs the Accessibility permission to block key presses."_s
                  << u"Request permission"_s << u"Open System Settings"_s;
    }
    return texts;
}

QLabel *label(const QWidget *root, const QString &name)
{
    return root->findChild<QLabel *>(name);
}

QWidget *box(const QWidget *page)
{
    return page->findChild<QWidget *>(u"permissionBox"_s);
}

QColor textColour(const QWidget *w)
{
    return w->palette().color(QPalette::WindowText);
}

// How many distinct colours an image holds, sampled on a grid.
int colourCount(const QImage &image)
{
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 3) {
        for (int x = 0; x < image.width(); x += 3)
            colours.insert(image.pixel(x, y));
    }
    return int(colours.size());
}

} // namespace

class ScreenCleanViewTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_home = std::make_unique<TestHome>(); }
    void init() { L10n::overrideForTesting(false); }
    void pageTexts_data();
    void pageTexts();
    void pageGeometry();
    void startUntrustedShowsPermissionMessage();
    void startRefusedShowsLockMessage();
    void requestPermissionOnlyPrompts();
    void boxFollowsTrust();
    void successfulStartClearsError();
    void overlayTexts_data();
    void overlayTexts();
    void overlayHintCountsEsc();
    void windowsPerScreen();
    void snapshotRender_data();
    void snapshotRender();

private:
    std::unique_ptr<TestHome> m_home;
};

void ScreenCleanViewTest::pageTexts_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<bool>("trusted");
    QTest::newRow("en trusted") << false << true;
    QTest::newRow("en untrusted") << false << false;
    QTest::newRow("zh trusted") << true << true;
    QTest::newRow("zh untrusted") << true << false;
}

void ScreenCleanViewTest::pageTexts()
{
    QFETCH(bool, zh);
    QFETCH(bool, trusted);
    L10n::overrideForTesting(zh);
    Rig rig(trusted);
    const auto page = shownPage(*rig.mode);
    QCOMPARE(Probe::sorted(Probe::visibleTexts(page.get())),
             Probe::sorted(expectedTexts(zh, trusted)));
    QCOMPARE(box(page.get())->isVisible(), !trusted);
    QVERIFY(!label(page.get(), u"error"_s)->isVisible());
    const QLabel *symbol = label(page.get(), u"symbol"_s);
    QVERIFY(symbol->isVisible());
    QVERIFY(!symbol->pixmap().isNull());
    QVERIFY(rig.log.isEmpty()); // drawing the page asks the lock nothing but trust
}

void ScreenCleanViewTest::pageGeometry()
{
    Rig rig(false, true);
    rig.mode->start();
    const auto page = shownPage(*rig.mode);
    page->resize(900, 900);
    QTRY_COMPARE(page->size(), QSize(900, 900));
    const int centre = page->width() / 2;
    for (const QString &name : {u"description"_s, u"error"_s}) {
        const QWidget *w = label(page.get(), name);
        QVERIFY2(w->isVisible(), qPrintable(name));
        QCOMPARE(w->width(), 480);
        QVERIFY2(w->height() >= w->heightForWidth(w->width()), qPrintable(name)); // no line cut
        QVERIFY2(qAbs(w->geometry().center().x() - centre) <= 1, qPrintable(name));
    }
    QVERIFY(qAbs(box(page.get())->geometry().center().x() - centre) <= 1);
    const QAbstractButton *start = Probe::button(page.get(), u"Start cleaning mode"_s);
    QVERIFY(start->width() >= 180);
    QVERIFY(qAbs(start->geometry().center().x() - centre) <= 1);
    QVERIFY(!start->icon().isNull());
    const QFont title = label(page.get(), u"title"_s)->font();
    QVERIFY(title.bold());
    QVERIFY(title.pointSizeF() > label(page.get(), u"description"_s)->font().pointSizeF());
}

void ScreenCleanViewTest::startUntrustedShowsPermissionMessage()
{
    Rig rig(false);
    const auto page = shownPage(*rig.mode);
    Probe::button(page.get(), u"Start cleaning mode"_s)->click();
    QCOMPARE(rig.log, QStringList{u"requestTrust"_s});
    const QLabel *error = label(page.get(), u"error"_s);
    QTRY_VERIFY(error->isVisible());
    QCOMPARE(error->text(), kPermissionEn);
    QCOMPARE(textColour(error), Theme::poor());
    QVERIFY(error->geometry().top() > box(page.get())->geometry().bottom());
    QVERIFY(box(page.get())->isVisible());
    QVERIFY(rig.windows.windows().isEmpty());
}

void ScreenCleanViewTest::startRefusedShowsLockMessage()
{
    Rig rig(true, false);
    const auto page = shownPage(*rig.mode);
    Probe::button(page.get(), u"Start cleaning mode"_s)->click();
    QCOMPARE(rig.log, QStringList{u"install"_s});
    QTRY_VERIFY(label(page.get(), u"error"_s)->isVisible());
    QCOMPARE(label(page.get(), u"error"_s)->text(), kLockEn);
    QVERIFY(!box(page.get())->isVisible());
    QVERIFY(!rig.mode->active());
    QVERIFY(rig.windows.windows().isEmpty());
}

void ScreenCleanViewTest::requestPermissionOnlyPrompts()
{
    Rig rig(false);
    const auto page = shownPage(*rig.mode);
    Probe::button(page.get(), u"Request permission"_s)->click();
    QCOMPARE(rig.log, QStringList{u"requestTrust"_s});
    QVERIFY(!rig.mode->active());
    QVERIFY(!rig.mode->lastError());
    QVERIFY(!label(page.get(), u"error"_s)->isVisible());
    // Opening the settings reaches nothing of the lock (and nothing at all on Linux).
    Probe::button(page.get(), u"Open System Settings"_s)->click();
    QCOMPARE(rig.log, QStringList{u"requestTrust"_s});
}

void ScreenCleanViewTest::boxFollowsTrust()
{
    Rig rig(false);
    const auto page = shownPage(*rig.mode);
    QVERIFY(box(page.get())->isVisible());

    // Granted elsewhere: the page learns it at its next change.
    rig.lock->isTrusted = true;
    QVERIFY(box(page.get())->isVisible());
    rig.mode->start();
    QVERIFY(!box(page.get())->isVisible());
    rig.mode->stop();

    // Withdrawn while the page was away: coming back shows the box again.
    page->hide();
    rig.lock->isTrusted = false;
    page->show();
    QVERIFY(box(page.get())->isVisible());
    rig.lock->isTrusted = true;
    page->appeared();
    QVERIFY(!box(page.get())->isVisible());
}

void ScreenCleanViewTest::successfulStartClearsError()
{
    Rig rig(true, false);
    const auto page = shownPage(*rig.mode);
    QAbstractButton *start = Probe::button(page.get(), u"Start cleaning mode"_s);
    start->click();
    QVERIFY(label(page.get(), u"error"_s)->isVisible());
    rig.lock->accepts = true;
    start->click();
    QVERIFY(rig.mode->active());
    QVERIFY(!label(page.get(), u"error"_s)->isVisible());
    QCOMPARE(rig.windows.windows().size(), QGuiApplication::screens().size());
    rig.mode->stop();
}

void ScreenCleanViewTest::overlayTexts_data()
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

void ScreenCleanViewTest::overlayTexts()
{
    QFETCH(bool, zh);
    QFETCH(QStringList, texts);
    L10n::overrideForTesting(zh);
    Rig rig;
    rig.mode->start();
    const QList<ScreenCleanOverlay *> windows = rig.windows.windows();
    QVERIFY(!windows.isEmpty());
    ScreenCleanOverlay *overlay = windows.first();
    QCOMPARE(Probe::visibleTexts(overlay), texts);
    // Dimmer the less it matters: title, locked line, hint.
    QCOMPARE(textColour(label(overlay, u"title"_s)).alpha(), qRound(0.70 * 255));
    QCOMPARE(textColour(label(overlay, u"locked"_s)).alpha(), qRound(0.45 * 255));
    QCOMPARE(textColour(label(overlay, u"hint"_s)).alpha(), qRound(0.35 * 255));
    const QLabel *locked = label(overlay, u"locked"_s);
    const QLabel *hint = label(overlay, u"hint"_s);
    QCOMPARE(hint->geometry().top() - locked->geometry().bottom() - 1, 10);
    QVERIFY(!label(overlay, u"symbol"_s)->pixmap().isNull());

    // All black, the text dim on it.
    const QImage image = overlay->grab().toImage();
    QCOMPARE(image.pixelColor(2, 2), QColor(Qt::black));
    QCOMPARE(image.pixelColor(image.width() - 3, image.height() - 3), QColor(Qt::black));
    QVERIFY(colourCount(image) > 2);
    rig.mode->stop();
}

void ScreenCleanViewTest::overlayHintCountsEsc()
{
    Rig rig;
    rig.mode->start();
    const QLabel *hint = label(rig.windows.windows().first(), u"hint"_s);
    QVERIFY(hint->text().endsWith(u"(0/3)"_s));
    rig.now = 10;
    rig.lock->esc();
    QTRY_VERIFY(hint->text().endsWith(u"(1/3)"_s));
    rig.now = 11;
    rig.lock->esc();
    QTRY_VERIFY(hint->text().endsWith(u"(2/3)"_s));
    rig.now = 13.5; // both earlier presses have expired
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
    QList<QPointer<ScreenCleanOverlay>> held;
    for (int i = 0; i < screens.size(); ++i) {
        ScreenCleanOverlay *w = windows.at(i);
        held.append(w);
        QVERIFY(w->isWindow());
        QVERIFY(w->isVisible());
        QCOMPARE(w->screen(), screens.at(i));
        QCOMPARE(w->geometry(), screens.at(i)->geometry());
        const Qt::WindowFlags flags = w->windowFlags();
        for (Qt::WindowType flag :
             {Qt::FramelessWindowHint, Qt::WindowStaysOnTopHint, Qt::X11BypassWindowManagerHint,
              Qt::WindowTransparentForInput, Qt::WindowDoesNotAcceptFocus})
            QVERIFY2(flags.testFlag(flag), qPrintable(QString::number(int(flag), 16)));
        QVERIFY(w->testAttribute(Qt::WA_ShowWithoutActivating));
        QCOMPARE(w->focusPolicy(), Qt::NoFocus);
    }
    QCOMPARE(rig.log, (QStringList{u"install"_s, u"hidePointer"_s}));

    rig.mode->stop();
    QVERIFY(rig.windows.windows().isEmpty());
    for (const QPointer<ScreenCleanOverlay> &w : std::as_const(held))
        QVERIFY(w.isNull());

    // A failed start makes no window at all.
    rig.lock->accepts = false;
    rig.mode->start();
    QVERIFY(rig.windows.windows().isEmpty());
    for (QWidget *w : QApplication::topLevelWidgets())
        QVERIFY(!qobject_cast<ScreenCleanOverlay *>(w));
}

void ScreenCleanViewTest::snapshotRender_data()
{
    QTest::addColumn<bool>("zh");
    QTest::addColumn<bool>("trusted");
    QTest::newRow("en trusted") << false << true;
    QTest::newRow("en untrusted with error") << false << false;
    QTest::newRow("zh untrusted with error") << true << false;
}

void ScreenCleanViewTest::snapshotRender()
{
    QFETCH(bool, zh);
    QFETCH(bool, trusted);
    L10n::overrideForTesting(zh);
    Rig rig(trusted);
    rig.mode->start(); // untrusted: leaves the permission message

    // As snapshot mode does it: never shown, fixed size, 2x.
    ScreenCleanView page(*rig.mode);
    page.ensurePolished();
    page.setFixedSize(720, 620);
    QImage image(QSize(720, 620) * 2, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(2);
    const QColor background = page.palette().window().color();
    image.fill(background);
    page.render(&image);
    QVERIFY(colourCount(image) > 20);

    // Everything fits: the whole column lies inside the page, the button included.
    QVERIFY(page.layout()->minimumSize().height() <= 620);
    const QAbstractButton *start = page.findChild<QAbstractButton *>(u"start"_s);
    QVERIFY(start->geometry().bottom() < 620 - 30);
    QVERIFY(start->geometry().top() > 30);
    // The accent-filled button really is drawn where it stands.
    const QColor accent = Theme::accent();
    const QPoint at = (start->geometry().topLeft() + QPoint(4, start->height() / 2)) * 2;
    const QColor drawn = image.pixelColor(at);
    QVERIFY2(qAbs(drawn.red() - accent.red()) < 12 && qAbs(drawn.blue() - accent.blue()) < 12,
             qPrintable(drawn.name()));
    const QWidget *description = page.findChild<QLabel *>(u"description"_s);
    QVERIFY(description->height() >= description->heightForWidth(description->width()));
    if (!trusted) {
        const QWidget *error = page.findChild<QLabel *>(u"error"_s);
        QVERIFY(error->isVisibleTo(&page));
        QVERIFY(error->geometry().bottom() < start->geometry().top());
    }
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
