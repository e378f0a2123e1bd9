#include "ui/pages/CleanListView.h"

#include "core/models/CleanModel.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/words/RestoreWords.h"
#include "ui/Theme.h"
#include "ui/kit/Confirm.h"
#include "ui/kit/ProminentButton.h"
#include "ui/kit/Spinner.h"
#include "ui/pages/CleanItemsView.h"
#include "ui/pages/CleanSection.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QHash>
#include <QItemSelectionModel>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

struct CleanListView::Private
{
    CleanModel &model;
    QList<CleanSection *> sections;
    // A copy of the model's list as last shown. While it is held, the model cannot change
    // its list in place, so sharing the same data means the rows are still current.
    QList<CleanItem> shown;
    Spinner *spinner = nullptr;
    QLabel *progress = nullptr;
    QLabel *message = nullptr;
    QPushButton *undo = nullptr;
    QPushButton *scan = nullptr;
    ProminentButton *remove = nullptr;

    void sync();
    void syncRows();
    void syncBar();
    qint64 selectedBytes() const;
};

namespace {

QLabel *secondaryLabel(Theme::Font font, QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setFont(Theme::font(font));
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, Theme::secondaryText());
    label->setPalette(palette);
    return label;
}

QString removeLabel()
{
    return L10n::pick(u"Move selected to Trash"_s, u"所选移到废纸篓"_s);
}

} // namespace

CleanListView::CleanListView(CleanModel &model, std::function<void(const QString &)> reveal,
                             QWidget *parent)
    : QWidget(parent), d(new Private{model, {}, {}})
{
    auto *content = new QWidget;
    auto *sections = new QVBoxLayout(content);
    sections->setContentsMargins(16, 12, 16, 12);
    sections->setSpacing(18);
    for (CleanCategory category : model.categories()) {
        auto *section = new CleanSection(model, category, content);
        connect(section->view(), &CleanItemsView::revealRequested, this, reveal);
        sections->addWidget(section);
        d->sections.append(section);
    }
    sections->addStretch(1);

    auto *scroll = new QScrollArea;
    // The lists never scroll themselves, so keyboard moves must scroll the page.
    for (CleanSection *section : std::as_const(d->sections)) {
        CleanItemsView *view = section->view();
        connect(view->selectionModel(), &QItemSelectionModel::currentChanged, this,
                [scroll, view](const QModelIndex &current) {
                    const QRect row = view->visualRect(current);
                    const QPoint at = view->mapTo(scroll->widget(), row.center());
                    scroll->ensureVisible(at.x(), at.y(), 0, row.height());
                });
    }
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);

    auto *divider = new QFrame;
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Sunken);

    auto *bar = new QWidget;
    auto *row = new QHBoxLayout(bar);
    row->setContentsMargins(12, 12, 12, 12);
    d->spinner = new Spinner(bar);
    d->progress = secondaryLabel(Theme::Font::body, bar);
    d->message = secondaryLabel(Theme::Font::caption, bar);
    d->message->setWordWrap(true);
    d->message->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    d->message->setTextInteractionFlags(Qt::TextSelectableByMouse);
    // At most three lines; the rest is cut off and kept in the tooltip.
    d->message->setMaximumHeight(
        d->message->fontMetrics().boundingRect(QRect(0, 0, 1000, 1000), 0, u"1\n2\n3"_s).height());
    d->undo = new QPushButton(Words::undo(), bar);
    d->scan = new QPushButton(L10n::pick(u"Scan"_s, u"扫描"_s), bar);
    d->remove = new ProminentButton(removeLabel(), {}, bar);
    row->addWidget(d->spinner);
    row->addWidget(d->progress);
    row->addWidget(d->message, 1);
    row->addWidget(d->undo, 0, Qt::AlignTop);
    row->addStretch();
    row->addWidget(d->scan);
    row->addWidget(d->remove);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(scroll, 1);
    layout->addWidget(divider);
    layout->addWidget(bar);

    // Only puts things back, so it asks nothing.
    connect(d->undo, &QPushButton::clicked, this, [this] { d->model.undo(); });
    connect(d->scan, &QPushButton::clicked, this, [this] { d->model.scan(); });
    connect(d->remove, &QPushButton::clicked, this, [this] { confirmRemoval(); });
    connect(&model, &CleanModel::changed, this, [this] { d->sync(); });
    d->sync();
}

CleanListView::~CleanListView()
{
    delete d;
}

void CleanListView::appeared()
{
    if (!d->model.scanned() && !d->model.scanning())
        d->model.scan();
}

void CleanListView::confirmRemoval()
{
    const QString n = QString::number(d->model.selected().size());
    const QString size = Fmt::bytes(d->selectedBytes());
    const QString title = L10n::pick(u"Move "_s + n + u" item(s), "_s + size + u", to the Trash?"_s,
                                     u"把 "_s + n + u" 项（共 "_s + size + u"）移到废纸篓？"_s);
    const QString message = L10n::pick(
        u"Nothing is deleted outright. Restore anything from the Trash if needed, then empty "
        u"the Trash from the Overview page when you are sure."_s,
        u"不会直接删除。有需要可从废纸篓恢复；确认无误后，再到「总览」页清空废纸篓。"_s);
    // The box may outlive neither the page nor the model, but guard the model anyway.
    Confirm::ask(this, title, message, L10n::pick(u"Move to Trash"_s, u"移到废纸篓"_s),
                 [model = QPointer<CleanModel>(&d->model)] {
                     if (model)
                         model->clean();
                 });
}

void CleanListView::Private::sync()
{
    const QList<CleanItem> &items = model.items();
    if (items.constData() != shown.constData() || items.size() != shown.size())
        syncRows();
    for (CleanSection *section : std::as_const(sections))
        section->refresh();
    syncBar();
}

void CleanListView::Private::syncRows()
{
    shown = model.items();
    QHash<CleanCategory, QList<CleanItem>> byCategory;
    for (const CleanItem &item : std::as_const(shown))
        byCategory[item.category].append(item);
    for (CleanSection *section : std::as_const(sections))
        section->setItems(byCategory.value(section->category()));
}

void CleanListView::Private::syncBar()
{
    const bool busy = model.scanning();
    spinner->setRunning(busy);
    spinner->setVisible(busy);
    progress->setVisible(busy);
    progress->setText(model.progress());
    const QString text = busy ? QString() : model.message().value_or(QString());
    message->setVisible(!text.isEmpty());
    message->setText(text);
    message->setToolTip(text);
    undo->setVisible(!busy && model.canUndo());

    scan->setEnabled(!busy);
    const qint64 bytes = selectedBytes();
    remove->setText(bytes > 0 ? removeLabel() + u" · "_s + Fmt::bytes(bytes) : removeLabel());
    remove->setEnabled(!busy && !model.selected().isEmpty());
}

qint64 CleanListView::Private::selectedBytes() const
{
    const QSet<QString> &selected = model.selected();
    if (selected.isEmpty())
        return 0;
    qint64 bytes = 0;
    for (const CleanItem &item : model.items()) {
        if (selected.contains(item.path))
            bytes += item.bytes;
    }
    return bytes;
}
