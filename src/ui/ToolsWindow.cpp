#include "ui/ToolsWindow.h"

#include "core/health/SystemStats.h"
#include "core/models/AppUpdater.h"
#include "core/models/CleanModel.h"
#include "core/models/Nav.h"
#include "core/models/OverviewModel.h"
#include "core/screenclean/ScreenCleanMode.h"
#include "core/words/CategoryWords.h"
#include "ui/Theme.h"
#include "ui/pages/CleanListView.h"
#include "ui/pages/OverviewView.h"
#include "ui/pages/ScreenCleanView.h"
#include "ui/pages/UpdatesView.h"

#include <QListWidget>
#include <QShowEvent>
#include <QSignalBlocker>
#include <QSplitter>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

std::unique_ptr<CleanModel> modelFor(ToolPage page, const std::shared_ptr<const System> &system)
{
    return std::make_unique<CleanModel>(cleanCategories(page).value_or(QList<CleanCategory>{}),
                                        CleanModel::Services::real(system));
}

int rowOf(ToolPage page)
{
    return int(std::find(kAllToolPages.begin(), kAllToolPages.end(), page) - kAllToolPages.begin());
}

// The highlight always marks the page shown: a click selects, and nothing (a Ctrl+click on
// the selected entry, a click below the last) clears it.
class Sidebar final : public QListWidget
{
protected:
    QItemSelectionModel::SelectionFlags selectionCommand(const QModelIndex &index,
                                                         const QEvent *) const override
    {
        return index.isValid() ? QItemSelectionModel::ClearAndSelect
                               : QItemSelectionModel::NoUpdate;
    }
};

} // namespace

ToolsWindow::ToolsWindow(std::shared_ptr<const System> system, OverviewModel &overview,
                         QWidget *parent)
    : QWidget(parent), m_system(system), m_overview(overview),
      m_cleanup(modelFor(ToolPage::cleanup, system)),
      m_leftovers(modelFor(ToolPage::leftovers, system)),
      m_large(modelFor(ToolPage::largeFiles, system)),
      m_unused(modelFor(ToolPage::unusedApps, system)),
      m_updater(std::make_unique<AppUpdater>(AppUpdater::Services::real(system))),
      m_sidebar(new Sidebar)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(u"Quorvel"_s);
    resize(900, 620);

    for (ToolPage page : kAllToolPages)
        new QListWidgetItem(Theme::icon(symbolName(page)), title(page), m_sidebar);
    m_sidebar->setMinimumWidth(170);
    m_sidebar->setSelectionMode(QAbstractItemView::SingleSelection);

    auto *detail = new QWidget;
    m_detail = new QVBoxLayout(detail);
    m_detail->setContentsMargins(0, 0, 0, 0);

    auto *split = new QSplitter;
    split->addWidget(m_sidebar);
    split->addWidget(detail);
    split->setCollapsible(0, false);
    split->setCollapsible(1, false);
    split->setStretchFactor(1, 1);
    split->setSizes({190, 900 - 190});
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(split);

    connect(m_sidebar, &QListWidget::currentRowChanged, this, [](int row) {
        if (row >= 0 && row < int(kAllToolPages.size()))
            Nav::shared().setPage(kAllToolPages[size_t(row)]);
    });
    connect(&Nav::shared(), &Nav::changed, this, [this] { showPage(Nav::shared().page()); });
    showPage(Nav::shared().page());
}

ToolsWindow::~ToolsWindow()
{
    // The pages refer to the models, which go before the child widgets would; this
    // includes a page replaced a moment ago and still waiting for its deferred delete.
    qDeleteAll(m_detail->parentWidget()->findChildren<QWidget *>(Qt::FindDirectChildrenOnly));
    m_page = nullptr;
}

CleanModel &ToolsWindow::cleanModel(ToolPage page)
{
    switch (page) {
    case ToolPage::leftovers:
        return *m_leftovers;
    case ToolPage::largeFiles:
        return *m_large;
    case ToolPage::unusedApps:
        return *m_unused;
    case ToolPage::cleanup:
        return *m_cleanup;
    case ToolPage::overview:
    case ToolPage::screen:
    case ToolPage::updates:
        break;
    }
    Q_ASSERT_X(false, "ToolsWindow::cleanModel", "not a clean-up page");
    return *m_cleanup;
}

AppUpdater &ToolsWindow::updater()
{
    return *m_updater;
}

void ToolsWindow::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    // A spontaneous show is the system restoring a minimised window, not an arrival.
    if (!event->spontaneous())
        pageAppeared();
}

void ToolsWindow::showPage(ToolPage page)
{
    {
        const QSignalBlocker blocker(m_sidebar);
        m_sidebar->setCurrentRow(rowOf(page));
    }
    if (m_page) {
        // Deferred: the switch may come from a control on the page being replaced.
        m_detail->removeWidget(m_page);
        m_page->hide();
        m_page->deleteLater();
    }
    if (cleanCategories(page))
        m_page = new CleanListView(
            cleanModel(page), [system = m_system](const QString &path) { system->reveal(path); });
    else if (page == ToolPage::overview)
        m_page = new OverviewView(m_overview, SystemStats::shared(), *m_system);
    else if (page == ToolPage::updates)
        m_page = new UpdatesView(*m_updater, [system = m_system](const QString &path) {
            system->openApplication(path);
        });
    else
        m_page = new ScreenCleanView(ScreenCleanMode::shared());
    m_detail->addWidget(m_page);
    if (isVisible())
        pageAppeared();
}

void ToolsWindow::pageAppeared()
{
    if (auto *clean = qobject_cast<CleanListView *>(m_page))
        clean->appeared();
    else if (auto *overview = qobject_cast<OverviewView *>(m_page))
        overview->appeared();
    else if (auto *updates = qobject_cast<UpdatesView *>(m_page))
        updates->appeared();
    else if (auto *screen = qobject_cast<ScreenCleanView *>(m_page))
        screen->appeared();
}
