#pragma once

#include "core/system/System.h"

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <memory>

class HealthPanel;
class OverlayWindows;
class QSystemTrayIcon;
class OverviewModel;
class Snapshot;
class ToolsWindow;

// The desktop app's wiring: the tray item with its health panel, the one tools window,
// and the routing of "quorvel://…" requests, whether they come from our own arguments,
// another process, the system (macOS open events) or snapshot mode.
class App final : public QObject
{
    Q_OBJECT

public:
    explicit App(std::shared_ptr<const System> system, QObject *parent = nullptr);
    ~App() override;

    // Launch: the tray (or, without one, the tools window so the app is reachable), the
    // sampler, then the snapshot check once the event loop runs; `urls` are routed last.
    void start(const QStringList &arguments, const QStringList &urls);

    // "quorvel://tools" opens the window; "quorvel://tools/<page>" also selects a page by
    // its raw name; kReopen is what a plain second launch sends. Others are ignored.
    void route(const QString &request);
    static constexpr QStringView kReopen{u"reopen"};

    // Creates the window on first use (and after it was closed), else brings it forward.
    void openTools();
    // Ends the event loop; main then leaves without waiting for background work.
    static void quit();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void createTray();
    void togglePanel();
    void placePanel();

    QSystemTrayIcon *m_tray = nullptr;
    QPointer<HealthPanel> m_panel;
    QElapsedTimer m_panelHidden;
    std::shared_ptr<const System> m_system;
    std::unique_ptr<OverviewModel> m_overview;
    QPointer<ToolsWindow> m_tools;
    std::unique_ptr<Snapshot> m_snapshot;
    std::unique_ptr<OverlayWindows> m_overlays;
};
