#include "ui/pages/OverviewView.h"

#include "core/health/SystemStats.h"
#include "core/models/OverviewModel.h"
#include "core/system/System.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "ui/Theme.h"
#include "ui/kit/Confirm.h"
#include "ui/kit/ProminentButton.h"
#include "ui/kit/TintedBox.h"
#include "ui/pages/RestoreLine.h"
#include "ui/pages/RingChart.h"

#include <QApplication>
#include <QCheckBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr int kHeaderIcon = 16;
constexpr int kCaptionIcon = 12;
constexpr int kDot = 9;

QLabel *textLabel(Theme::Font font, QWidget *parent, bool secondary = false, bool bold = false,
                  const QString &text = {})
{
    auto *label = new QLabel(text, parent);
    QFont f = Theme::font(font);
    if (bold)
        f.setBold(true);
    label->setFont(f);
    label->setTextFormat(Qt::PlainText);
    if (secondary) {
        QPalette palette = label->palette();
        palette.setColor(QPalette::WindowText, Theme::secondaryText());
        label->setPalette(palette);
    }
    return label;
}

QLabel *symbolLabel(const QString &name, int size, const QColor &tint, QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setPixmap(Theme::symbol(name, size, tint));
    label->setFixedSize(size, size);
    return label;
}

QPixmap dot(const QColor &colour)
{
    const qreal dpr = qApp->devicePixelRatio();
    QPixmap pixmap(QSize(kDot, kDot) * dpr);
    pixmap.setDevicePixelRatio(dpr);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawEllipse(QRectF(0, 0, kDot, kDot));
    return pixmap;
}

// A titled group: the symbol and bold title above a lightly filled rounded body.
class GroupBox final : public QFrame
{
public:
    GroupBox(const QString &title, const QString &symbol, QWidget *parent) : QFrame(parent)
    {
        auto *column = new QVBoxLayout(this);
        column->setContentsMargins(0, 0, 0, 0);
        column->setSpacing(6);
        auto *header = new QHBoxLayout;
        header->setSpacing(6);
        header->addWidget(symbolLabel(symbol, kHeaderIcon, QColor(), this));
        QLabel *titleLabel = textLabel(Theme::Font::body, this, false, true, title);
        titleLabel->setObjectName(u"boxTitle"_s);
        header->addWidget(titleLabel);
        header->addStretch(1);
        column->addLayout(header);
        m_body = new TintedBox(this);
        column->addWidget(m_body);
    }
    QWidget *body() const { return m_body; }

private:
    QWidget *m_body;
};

QVBoxLayout *paddedColumn(QWidget *body, int spacing)
{
    auto *column = new QVBoxLayout(body);
    column->setContentsMargins(8, 8, 8, 8);
    column->setSpacing(spacing);
    return column;
}

} // namespace

struct OverviewView::Private
{
    OverviewModel &model;
    SystemStats &stats;
    Settings settings;
    // The model's list as last drawn; shared data means nothing changed since.
    QList<DiskCategory> shown;

    RingChart *ring = nullptr;
    QLabel *free = nullptr;
    QLabel *total = nullptr;
    QLabel *hint = nullptr;
    QWidget *rows = nullptr;
    QPushButton *scan = nullptr;

    QLabel *trashSize = nullptr;
    QLabel *trashCount = nullptr;
    QWidget *unreadable = nullptr;
    QLabel *pending = nullptr;
    QLabel *trashMsg = nullptr;
    RestoreLine *restore = nullptr;
    QPushButton *grant = nullptr;
    QPushButton *empty = nullptr;

    QCheckBox *login = nullptr;

    QWidget *diskBox(QWidget *parent);
    QWidget *trashBox(QWidget *parent);
    QWidget *settingsBox(QWidget *parent);
    void sync();
    void syncDisk();
    void rebuildRows();
};

OverviewView::Settings OverviewView::Settings::of(const System &system)
{
    // The system outlives every window and every task started from one.
    RestoreModel::Services restore;
    restore.restorable = [&system] { return Restorer::restorable(system); };
    restore.restore = [&system](const QList<Restorer::Move> &moves) {
        return Restorer::restore(moves, system);
    };
    return {[&system] { return system.loginItemEnabled(); },
            [&system](bool on) { return system.setLoginItem(on); },
            [&system] { system.openFullDiskAccessSettings(); },
            system.version(),
            restore,
            [&system](const QString &path) { return system.where().tilde(path); }};
}

OverviewView::OverviewView(OverviewModel &model, SystemStats &stats, const System &system,
                           QWidget *parent)
    : OverviewView(model, stats, Settings::of(system), parent)
{}

OverviewView::OverviewView(OverviewModel &model, SystemStats &stats, Settings settings,
                           QWidget *parent)
    : QWidget(parent), d(new Private{model, stats, std::move(settings), {}})
{
    auto *content = new QWidget;
    auto *column = new QVBoxLayout(content);
    column->setContentsMargins(20, 20, 20, 20);
    column->setSpacing(14);
    column->addWidget(d->diskBox(content));
    column->addWidget(d->trashBox(content));
    column->addWidget(d->settingsBox(content));
    column->addStretch(1);

    auto *scroll = new QScrollArea;
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(scroll);

    connect(d->scan, &QPushButton::clicked, this, [this] { d->model.scan(); });
    connect(d->grant, &QPushButton::clicked, this, [this] {
        if (d->settings.openFullDiskAccess)
            d->settings.openFullDiskAccess();
    });
    connect(d->empty, &QPushButton::clicked, this, &OverviewView::confirmEmptying);
    connect(d->login, &QCheckBox::clicked, this, &OverviewView::loginToggled);
    connect(d->restore, &RestoreLine::restored, this, [this] { d->model.refreshTrash(); });
    connect(&model, &OverviewModel::changed, this, [this] { d->sync(); });
    connect(&stats, &SystemStats::changed, this, [this] { d->syncDisk(); });
    d->sync();
    d->syncDisk();
}

OverviewView::~OverviewView() = default;

void OverviewView::appeared()
{
    d->model.refreshTrash();
    d->restore->refresh();
    if (d->model.cats().isEmpty())
        d->model.scan();
}

QWidget *OverviewView::Private::diskBox(QWidget *parent)
{
    auto *box = new GroupBox(L10n::pick(u"Macintosh HD"_s, u"磁盘"_s), u"internaldrive"_s, parent);
    auto *row = new QHBoxLayout(box->body());
    row->setContentsMargins(8, 8, 8, 8);
    row->setSpacing(24);

    ring = new RingChart(box->body());
    auto *centre = new QVBoxLayout(ring);
    centre->setContentsMargins(0, 0, 0, 0);
    centre->setSpacing(0);
    free = textLabel(Theme::Font::title2, ring, false, true);
    total = textLabel(Theme::Font::caption, ring, true);
    QLabel *available =
        textLabel(Theme::Font::caption, ring, true, false, L10n::pick(u"available"_s, u"可用"_s));
    centre->addStretch(1);
    for (QLabel *line : {free, total, available})
        centre->addWidget(line, 0, Qt::AlignHCenter);
    centre->addStretch(1);
    row->addWidget(ring, 0, Qt::AlignVCenter);

    auto *legend = new QWidget(box->body());
    legend->setMinimumWidth(220);
    auto *lines = new QVBoxLayout(legend);
    lines->setContentsMargins(0, 0, 0, 0);
    lines->setSpacing(8);
    hint = textLabel(Theme::Font::body, legend, true);
    hint->setWordWrap(true);
    lines->addWidget(hint);
    rows = new QWidget(legend);
    auto *rowLines = new QVBoxLayout(rows);
    rowLines->setContentsMargins(0, 0, 0, 0);
    rowLines->setSpacing(8);
    lines->addWidget(rows);
    scan = new QPushButton(legend);
    auto *buttonRow = new QHBoxLayout;
    buttonRow->setContentsMargins(0, 4, 0, 0);
    buttonRow->addWidget(scan);
    buttonRow->addStretch(1);
    lines->addLayout(buttonRow);
    row->addWidget(legend, 0, Qt::AlignVCenter);
    row->addStretch(1);
    return box;
}

QWidget *OverviewView::Private::trashBox(QWidget *parent)
{
    auto *box = new GroupBox(L10n::pick(u"Trash"_s, u"废纸篓"_s), u"trash"_s, parent);
    auto *row = new QHBoxLayout(box->body());
    row->setContentsMargins(8, 8, 8, 8);
    auto *lines = new QVBoxLayout;
    lines->setSpacing(4);

    trashSize = textLabel(Theme::Font::title3, box, false, true);
    trashCount = textLabel(Theme::Font::caption, box, true);
    lines->addWidget(trashSize);
    lines->addWidget(trashCount);

    unreadable = new QWidget(box);
    auto *why = new QVBoxLayout(unreadable);
    why->setContentsMargins(0, 0, 0, 0);
    why->setSpacing(4);
    why->addWidget(textLabel(Theme::Font::headline, unreadable, false, false,
                             L10n::pick(u"Size unavailable"_s, u"无法读取大小"_s)));
    QLabel *explanation = textLabel(
        Theme::Font::caption, unreadable, true, false,
        L10n::pick(u"macOS hides the Trash from apps unless they have Full Disk Access. "
                   u"Emptying still works."_s,
                   u"macOS 不让应用读取废纸篓内容，除非给「完全磁盘访问权限」。清空仍然可用。"_s));
    explanation->setWordWrap(true);
    why->addWidget(explanation);
    grant = new QPushButton(L10n::pick(u"Grant Full Disk Access…"_s, u"去授权完全磁盘访问…"_s),
                            unreadable);
    grant->setFont(Theme::font(Theme::Font::callout));
    why->addWidget(grant, 0, Qt::AlignLeft);
    lines->addWidget(unreadable);

    pending = textLabel(Theme::Font::body, box, false, false, u"…"_s);
    lines->addWidget(pending);
    trashMsg = textLabel(Theme::Font::caption, box, true);
    trashMsg->setWordWrap(true);
    trashMsg->setTextInteractionFlags(Qt::TextSelectableByMouse);
    lines->addWidget(trashMsg);
    restore = new RestoreLine(settings.restore, settings.shown, box);
    lines->addWidget(restore);
    row->addLayout(lines, 1);

    empty = new ProminentButton(L10n::pick(u"Empty Trash"_s, u"清空废纸篓"_s), {}, box);
    row->addWidget(empty, 0, Qt::AlignVCenter);

    return box;
}

QWidget *OverviewView::Private::settingsBox(QWidget *parent)
{
    auto *box =
        new GroupBox(L10n::pick(u"Settings & safety"_s, u"设置与安全"_s), u"gearshape"_s, parent);
    QVBoxLayout *lines = paddedColumn(box->body(), 8);

    auto *top = new QHBoxLayout;
    login =
        new QCheckBox(L10n::pick(u"Start Quorvel at login"_s, u"登录时自动启动 Quorvel"_s), box);
    login->setChecked(settings.loginEnabled && settings.loginEnabled());
    const QString version = settings.version.value_or(QString());
    QLabel *versionLabel = textLabel(Theme::Font::caption, box, true, false,
                                     u"v"_s + (version.isEmpty() ? u"dev"_s : version));
    versionLabel->setObjectName(u"version"_s);
    top->addWidget(login);
    top->addStretch(1);
    top->addWidget(versionLabel);
    lines->addLayout(top);

    auto *safety = new QHBoxLayout;
    safety->setSpacing(6);
    safety->addWidget(symbolLabel(u"checkmark.shield"_s, kCaptionIcon, Theme::secondaryText(), box),
                      0, Qt::AlignTop);
    QLabel *promise = textLabel(
        Theme::Font::caption, box, true, false,
        L10n::pick(u"Quorvel never deletes files outright: every clean-up moves items to the "
                   u"Trash, protected folders (Mail, Messages, Photos, Documents, iCloud…) are "
                   u"refused, and each move is written to ~/Library/Logs/Quorvel/removals.log."_s,
                   u"Quorvel 从不直接删除文件：所有清理都先移到废纸篓；邮件、信息、照片、文稿、"
                   u"iCloud 等受保护位置一律拒绝；每次移动都记在 "
                   u"~/Library/Logs/Quorvel/removals.log。"_s));
    promise->setWordWrap(true);
    safety->addWidget(promise, 1);
    lines->addLayout(safety);
    return box;
}

void OverviewView::Private::sync()
{
    const QList<DiskCategory> &cats = model.cats();
    if (cats.constData() != shown.constData() || cats.size() != shown.size()) {
        shown = cats;
        ring->setCategories(shown);
        rebuildRows();
    }
    const bool scanning = model.scanning();
    hint->setVisible(cats.isEmpty());
    if (cats.isEmpty()) {
        hint->setText(scanning ? L10n::pick(u"Measuring "_s + model.progress() + u"…"_s,
                                            u"正在统计 "_s + model.progress() + u"…"_s)
                               : L10n::pick(u"Press Scan to measure folder sizes."_s,
                                            u"点「扫描」统计各文件夹大小。"_s));
    }
    scan->setText(scanning ? L10n::pick(u"Scanning…"_s, u"扫描中…"_s)
                           : L10n::pick(u"Rescan"_s, u"重新扫描"_s));
    scan->setEnabled(!scanning);

    const std::optional<TrashSize> &trash = model.trash();
    if (trash) {
        trashSize->setText(Fmt::bytes(trash->bytes));
        const QString n = QString::number(trash->count);
        trashCount->setText(L10n::pick(n + u" item(s)"_s, n + u" 项"_s));
    }
    trashSize->setVisible(trash.has_value());
    trashCount->setVisible(trash.has_value());
    unreadable->setVisible(!trash && model.trashUnreadable());
    pending->setVisible(!trash && !model.trashUnreadable());
    const std::optional<QString> &message = model.trashMsg();
    trashMsg->setText(message.value_or(QString()));
    trashMsg->setVisible(message.has_value());
}

void OverviewView::Private::syncDisk()
{
    const DiskUsage disk = stats.disk();
    free->setText(Fmt::bytes(disk.free));
    const QString size = Fmt::bytes(disk.total);
    total->setText(L10n::pick(u"of "_s + size, u"共 "_s + size));
}

void OverviewView::Private::rebuildRows()
{
    for (QWidget *old : rows->findChildren<QWidget *>(Qt::FindDirectChildrenOnly))
        delete old;
    for (const DiskCategory &category : std::as_const(shown)) {
        auto *line = new QWidget(rows);
        line->setObjectName(u"legendRow"_s);
        auto *row = new QHBoxLayout(line);
        row->setContentsMargins(0, 0, 0, 0);
        row->setSpacing(6);
        auto *mark = new QLabel(line);
        mark->setObjectName(u"dot"_s);
        mark->setPixmap(dot(RingChart::colour(category.id)));
        mark->setFixedSize(kDot, kDot);
        row->addWidget(mark);
        row->addWidget(textLabel(Theme::Font::body, line, false, false, category.name));
        row->addStretch(1);
        QLabel *size = textLabel(Theme::Font::body, line, true, false, Fmt::bytes(category.bytes));
        size->setFont(Theme::figures(Theme::Font::body));
        row->addWidget(size);
        rows->layout()->addWidget(line);
    }
    rows->setVisible(!shown.isEmpty());
}

void OverviewView::confirmEmptying()
{
    Confirm::ask(this,
                 L10n::pick(u"Empty the Trash? This cannot be undone."_s,
                            u"确定清空废纸篓？此操作无法撤销。"_s),
                 {}, L10n::pick(u"Empty Trash"_s, u"清空"_s),
                 [model = QPointer<OverviewModel>(&d->model)] {
                     if (model)
                         model->emptyTrash();
                 });
}

// The switch shows what the system holds, not what was asked: a refused change springs
// back. The refusal's reason is not shown.
void OverviewView::loginToggled(bool on)
{
    if (d->settings.setLogin)
        d->settings.setLogin(on);
    const QSignalBlocker blocker(d->login);
    d->login->setChecked(d->settings.loginEnabled && d->settings.loginEnabled());
}
