#include "Snapshot.h"

#include "core/health/SystemStats.h"
#include "core/models/AppUpdater.h"
#include "core/models/CleanModel.h"
#include "core/models/Nav.h"
#include "core/models/OverviewModel.h"
#include "core/screenclean/ScreenCleanMode.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/words/UpdatesWords.h"
#include "ui/HealthPanel.h"
#include "ui/pages/ScreenCleanView.h"

#include <QApplication>
#include <QBuffer>
#include <QDir>
#include <QImage>
#include <QPixmap>
#include <QSaveFile>
#include <QTimer>
#include <QWidget>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr qreal kRenderScale = 2;
constexpr QSize kScreenPageSize{720, 620};

// The tools window as the user sees it: the first visible top-level with our title.
QWidget *toolsWindow()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows) {
        if (window->isVisible() && window->windowTitle() == u"Quorvel"_s)
            return window;
    }
    return nullptr;
}

// A widget off screen at twice its size on the window colour; null when out of memory.
QImage rendered(QWidget &widget)
{
    QImage image(widget.size() * kRenderScale, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull())
        return image;
    image.setDevicePixelRatio(kRenderScale);
    image.fill(widget.palette().window().color());
    widget.render(&image);
    return image;
}

} // namespace

std::optional<QString> Snapshot::requestedFolder(const QStringList &arguments)
{
    const qsizetype at = arguments.indexOf(u"--snapshot"_s, 1);
    if (at < 0 || at + 1 >= arguments.size())
        return std::nullopt;
    return arguments.at(at + 1);
}

double Snapshot::waitScale()
{
    bool ok = false;
    const double scale = qEnvironmentVariable("QUORVEL_SNAPSHOT_SCALE").toDouble(&ok);
    return ok && std::isfinite(scale) && scale > 0 ? scale : 1.0;
}

Snapshot::Snapshot(QString folder, std::function<void(const QString &)> route,
                   std::shared_ptr<const System> system, OverviewModel &overview, QObject *parent)
    : QObject(parent), m_folder(QDir(folder).absolutePath()), m_system(std::move(system)),
      m_overview(overview), m_route(std::move(route))
{}

Snapshot::~Snapshot() = default;

void Snapshot::start()
{
    m_steps = steps();
    run(0);
}

QList<Snapshot::Step> Snapshot::steps()
{
    QList<Step> list;
    list.append({[this] { QDir().mkpath(m_folder); }, 2});
    list.append({[this] { renderPanel(); }, 0});
    list.append({[this] { startWork(); }, 25});
    list.append({[this] { renderScreenPage(); }, 0});
    list.append({[this] { m_route(u"quorvel://tools"_s); }, 3});
    int number = 0;
    for (ToolPage page : kAllToolPages) {
        ++number;
        if (page == ToolPage::screen)
            continue;
        const double wait = page == ToolPage::unusedApps ? 30 : 6;
        list.append({[page] { Nav::shared().setPage(page); }, wait});
        list.append({[this, number, raw = rawValue(page)] { capturePage(number, raw); }, 0});
    }
    list.append({[this] { writeUpdates(); }, 0});
    list.append({[this] { writeLeftovers(); }, 0});
    list.append({[] { QCoreApplication::quit(); }, 0});
    return list;
}

void Snapshot::run(qsizetype index)
{
    if (index >= m_steps.size())
        return;
    const Step &step = m_steps.at(index);
    step.action();
    const int ms = int(std::lround(step.waitAfter * 1000 * waitScale()));
    QTimer::singleShot(ms, this, [this, index] { run(index + 1); });
}

void Snapshot::renderPanel()
{
    HealthPanel panel(
        SystemStats::shared(), [] {}, [] {}, m_system->computerName());
    panel.ensurePolished();
    panel.setFixedWidth(HealthPanel::kWidth);
    panel.adjustSize();
    save(rendered(panel), u"0_menubar_panel.png"_s);
}

void Snapshot::renderScreenPage()
{
    ScreenCleanView page(ScreenCleanMode::shared());
    page.ensurePolished();
    page.setFixedSize(kScreenPageSize);
    save(rendered(page), u"5_screen.png"_s);
}

void Snapshot::startWork()
{
    m_overview.refreshTrash();
    m_overview.scan();
    m_leftovers = new CleanModel(*cleanCategories(ToolPage::leftovers),
                                 CleanModel::Services::real(m_system), this);
    m_leftovers->scan();
    m_updater = new AppUpdater(AppUpdater::Services::real(m_system), this);
    m_updater->scan();
}

void Snapshot::capturePage(int number, const QString &raw)
{
    QWidget *window = toolsWindow();
    if (!window)
        return;
    const QPixmap pixmap = window->grab();
    if (pixmap.isNull())
        return;
    save(pixmap.toImage(), QString::number(number) + u'_' + raw + u".png"_s);
}

void Snapshot::writeUpdates()
{
    QStringList lines{m_updater->status()};
    for (const OutdatedApp &app : m_updater->items()) {
        lines.append(sourceLabel(app.source) + u'\t' + app.name + u'\t' + app.installed +
                     u" -> "_s + app.latest);
    }
    // With no findings the status still ends in its line break.
    const QString text = lines.size() == 1 ? lines.first() + u'\n' : lines.join(u'\n');
    write(u"updates.txt"_s, text.toUtf8());
}

void Snapshot::writeLeftovers()
{
    QStringList lines;
    for (const CleanItem &item : m_leftovers->items())
        lines.append(item.title + u'\t' + item.subtitle + u'\t' + Fmt::bytes(item.bytes));
    write(u"leftovers.txt"_s, lines.join(u'\n').toUtf8());
}

void Snapshot::save(const QImage &image, const QString &name) const
{
    QByteArray png;
    QBuffer buffer(&png);
    if (image.isNull() || !buffer.open(QIODevice::WriteOnly) || !image.save(&buffer, "PNG"))
        return;
    write(name, png);
}

void Snapshot::write(const QString &name, const QByteArray &data) const
{
    QSaveFile file(QDir(m_folder).filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size())
        return; // the destructor discards the partial file
    file.commit();
}
