#pragma once

#include "core/system/System.h"

#include "core/types/ToolPage.h"

#include <QWidget>
#include <memory>

class AppUpdater;
class CleanModel;
class OverviewModel;
class QListWidget;
class QVBoxLayout;

// The tools window: a sidebar of the seven pages kept in step with Nav, and a detail
// area rebuilt on every page change. It owns the four clean-up models and the updater;
// closing (deleting) the window discards them. It deletes itself when closed.
class ToolsWindow final : public QWidget
{
    Q_OBJECT

public:
    ToolsWindow(std::shared_ptr<const System> system, OverviewModel &overview,
                QWidget *parent = nullptr);
    ~ToolsWindow() override;

    CleanModel &cleanModel(ToolPage page); // cleanup, leftovers, largeFiles, unusedApps
    AppUpdater &updater();
    QWidget *currentPage() const { return m_page; }
    QListWidget *sidebar() const { return m_sidebar; }

protected:
    void showEvent(QShowEvent *event) override;

private:
    void showPage(ToolPage page);
    void pageAppeared();

    std::shared_ptr<const System> m_system;
    OverviewModel &m_overview;
    std::unique_ptr<CleanModel> m_cleanup, m_leftovers, m_large, m_unused;
    std::unique_ptr<AppUpdater> m_updater;
    QListWidget *m_sidebar = nullptr;
    QVBoxLayout *m_detail = nullptr;
    QWidget *m_page = nullptr;
};
