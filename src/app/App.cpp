#include "App.h"

#include "Snapshot.h"

#include "core/models/OverviewModel.h"

#include "core/health/SystemStats.h"
#include "core/models/Nav.h"
#include "core/screenclean/ScreenCleanMode.h"
#include "ui/HealthPanel.h"
#include "ui/Theme.h"
#include "ui/ToolsWindow.h"
#include "ui/screenclean/OverlayWindows.h"

#include <QApplication>
#include <QCursor>
#include <QFileOpenEvent>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QUrl>
#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr double kSampleSeconds = 2.0;
constexpr QSize kToolsSize{900, 620};
// A click on the tray icon while the panel is open first closes the panel (outside
// click), then arrives as a trigger; within this time it must not reopen it.
constexpr qint64 kReopenGuardMs = 300;

} // namespace

App::App(std::shared_ptr<const System> system, QObject *parent)
    : QObject(parent), m_system(system),
      m_overview(std::make_unique<OverviewModel>(OverviewModel::Services::real(system))),
      m_overlays(std::make_unique<OverlayWindows>())
{
    qApp->installEventFilter(this); // macOS hands "quorvel://" URLs over as open events
    ScreenCleanMode::shared().setOverlayHost(m_overlays.get());
    connect(qApp, &QCoreApplication::aboutToQuit, this, [this] {
        // First of all: the black windows and the input lock must never outlast the app.
        ScreenCleanMode::shared().stop();
        if (m_tray)
            m_tray->hide();
    });
}

App::~App()
{
    ScreenCleanMode::shared().stop();
    ScreenCleanMode::shared().setOverlayHost(nullptr);
}

void App::start(const QStringList &arguments, const QStringList &urls)
{
    const std::optional<QString> snapshotFolder = Snapshot::requestedFolder(arguments);
    if (QSystemTrayIcon::isSystemTrayAvailable())
        createTray();
    else if (!snapshotFolder)
        openTools(); // without a tray nothing else would ever show the app
    SystemStats::shared().start(kSampleSeconds);

    // From the running loop: snapshot mode times itself with it, and URLs from our own
    // arguments take the same route as forwarded ones.
    QTimer::singleShot(0, this, [this, snapshotFolder, urls] {
        if (snapshotFolder) {
            m_snapshot = std::make_unique<Snapshot>(
                *snapshotFolder, [this](const QString &request) { route(request); }, m_system,
                *m_overview);
            m_snapshot->start();
        }
        for (const QString &url : urls)
            route(url);
    });
}

void App::route(const QString &request)
{
    if (request == kReopen) {
        openTools();
        return;
    }
    const QUrl url(request);
    if (url.scheme().compare(u"quorvel"_s, Qt::CaseInsensitive) != 0 || url.host() != u"tools"_s)
        return;
    if (const std::optional<ToolPage> page = toolPageFromRaw(url.path().section(u'/', 1, 1)))
        Nav::shared().setPage(*page);
    openTools();
}

void App::openTools()
{
    if (!m_tools) {
        m_tools = new ToolsWindow(m_system, *m_overview);
        m_tools->setAttribute(Qt::WA_DeleteOnClose); // reopening gives fresh models
        m_tools->setWindowTitle(u"Quorvel"_s);
        m_tools->resize(kToolsSize);
    }
    if (m_tools->isMinimized())
        m_tools->showNormal();
    m_tools->show();
    m_tools->raise();
    m_tools->activateWindow();
}

void App::quit()
{
    QCoreApplication::quit();
}

bool App::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == qApp && event->type() == QEvent::FileOpen) {
        const QUrl url = static_cast<QFileOpenEvent *>(event)->url();
        if (url.scheme().compare(u"quorvel"_s, Qt::CaseInsensitive) == 0) {
            route(url.toString());
            return true;
        }
    }
    if (m_panel && watched == m_panel && event->type() == QEvent::Hide)
        m_panelHidden.start();
    return QObject::eventFilter(watched, event);
}

void App::createTray()
{
    QIcon icon = Theme::icon(u"heart.text.square.fill"_s);
#ifdef Q_OS_MACOS
    icon.setIsMask(true); // drawn by the menu bar in its own colour
#endif
    m_tray = new QSystemTrayIcon(icon, this);
    m_tray->setToolTip(u"Quorvel"_s);
    connect(m_tray, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                // Hosts without a menu of ours report some clicks as Context.
                if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::Context)
                    togglePanel();
            });
    m_tray->show();
}

void App::togglePanel()
{
    if (m_panel && m_panel->isVisible()) {
        m_panel->hide();
        return;
    }
    if (m_panelHidden.isValid() && m_panelHidden.elapsed() < kReopenGuardMs)
        return;
    if (!m_panel) {
        // The panel hides itself before calling back.
        m_panel = new HealthPanel(
            SystemStats::shared(), [this] { openTools(); }, &App::quit, m_system->computerName());
        m_panel->setWindowFlags(Qt::Popup | Qt::FramelessWindowHint);
        m_panel->setFixedWidth(HealthPanel::kWidth);
        m_panel->installEventFilter(this);
    }
    m_panel->adjustSize();
    placePanel();
    m_panel->show();
    m_panel->activateWindow();
}

void App::placePanel()
{
    const QRect icon = m_tray ? m_tray->geometry() : QRect();
    const QPoint anchor = icon.isValid() ? icon.center() : QCursor::pos();
    QScreen *screen = QGuiApplication::screenAt(anchor);
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    const QRect area = screen ? screen->availableGeometry() : QRect();
    const QSize size = m_panel->size();

    QPoint at(anchor.x() - size.width() / 2, icon.isValid() ? icon.bottom() + 1 : anchor.y());
    // A tray along the bottom edge gets the panel above it.
    if (icon.isValid() && area.isValid() && icon.center().y() > area.center().y())
        at.setY(icon.top() - size.height());
    if (area.isValid()) {
        at.setX(std::clamp(at.x(), area.left(),
                           std::max(area.left(), area.right() + 1 - size.width())));
        at.setY(std::clamp(at.y(), area.top(),
                           std::max(area.top(), area.bottom() + 1 - size.height())));
    }
    m_panel->move(at);
}
