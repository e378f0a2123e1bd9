#include "ui/pages/UpdatesView.h"

#include "core/models/AppUpdater.h"
#include "core/text/L10n.h"
#include "core/updates/AppStore.h"
#include "core/words/UpdatesWords.h"
#include "ui/Theme.h"
#include "ui/kit/ElidedLabel.h"
#include "ui/kit/ProminentButton.h"
#include "ui/kit/Spinner.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedLayout>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr int kEmptyIcon = 48;
constexpr int kDescriptionWidth = 420;

QLabel *label(Theme::Font role, bool secondary, QWidget *parent)
{
    auto *l = new QLabel(parent);
    l->setFont(Theme::font(role));
    // Names come from other people's packages and may hold '<' or '&'.
    l->setTextFormat(Qt::PlainText);
    if (secondary) {
        QPalette p = l->palette();
        p.setColor(QPalette::WindowText, Theme::secondaryText());
        l->setPalette(p);
    }
    return l;
}

QString buttonText(OutdatedApp::Source source)
{
    switch (source) {
    case OutdatedApp::Source::brewFormula:
    case OutdatedApp::Source::brewCask:
        break;
    case OutdatedApp::Source::appStore:
        return L10n::pick(u"Open App Store"_s, u"打开 App Store"_s);
    case OutdatedApp::Source::sparkle:
        return L10n::pick(u"Open app to update"_s, u"打开应用更新"_s);
    }
    return L10n::pick(u"Upgrade"_s, u"升级"_s);
}

bool isHomebrew(OutdatedApp::Source source)
{
    return source == OutdatedApp::Source::brewFormula || source == OutdatedApp::Source::brewCask;
}

} // namespace

struct UpdatesView::Private
{
    Private(AppUpdater &u, OpenApplication o) : updater(u), open(std::move(o)) {}

    AppUpdater &updater;
    OpenApplication open;
    QList<OutdatedApp> shown; // the rows as last built
    QWidget *rows = nullptr;
    QVBoxLayout *rowLayout = nullptr;
    QList<QPushButton *> upgradeButtons;
    QWidget *empty = nullptr;
    QLabel *emptyTitle = nullptr;
    Spinner *spinner = nullptr;
    ElidedLabel *statusLine = nullptr;
    QPushButton *checkNow = nullptr;

    QWidget *buildEmptyPanel();
    QWidget *buildRow(const OutdatedApp &app);
    void act(const OutdatedApp &app);
    void sync();
    void syncRows();
};

UpdatesView::UpdatesView(AppUpdater &updater, OpenApplication openApplication, QWidget *parent)
    : QWidget(parent), d(new Private(updater, std::move(openApplication)))
{
    d->rows = new QWidget;
    d->rowLayout = new QVBoxLayout(d->rows);
    d->rowLayout->setContentsMargins(16, 8, 16, 8);
    d->rowLayout->setSpacing(6);
    d->rowLayout->addStretch(1);

    auto *scroll = new QScrollArea;
    scroll->setWidget(d->rows);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);

    // The panel lies over the list rather than replacing it, as the list is empty whenever
    // the panel shows.
    auto *listArea = new QWidget;
    auto *stack = new QStackedLayout(listArea);
    stack->setStackingMode(QStackedLayout::StackAll);
    stack->addWidget(scroll);
    d->empty = d->buildEmptyPanel();
    stack->addWidget(d->empty);
    stack->setCurrentWidget(d->empty);

    auto *divider = new QFrame;
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Sunken);

    auto *bar = new QWidget;
    auto *barRow = new QHBoxLayout(bar);
    barRow->setContentsMargins(12, 12, 12, 12);
    d->spinner = new Spinner(bar);
    d->statusLine = new ElidedLabel(Qt::ElideRight, bar);
    QPalette p = d->statusLine->palette();
    p.setColor(QPalette::WindowText, Theme::secondaryText());
    d->statusLine->setPalette(p);
    d->checkNow = new ProminentButton(L10n::pick(u"Check now"_s, u"立即检查"_s), {}, bar);
    barRow->addWidget(d->spinner);
    // The label takes the flexible space, so a longer status never waits for a relayout.
    barRow->addWidget(d->statusLine, 1);
    barRow->addWidget(d->checkNow);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(listArea, 1);
    layout->addWidget(divider);
    layout->addWidget(bar);

    connect(d->checkNow, &QPushButton::clicked, this, [this] { d->updater.scan(); });
    connect(&updater, &AppUpdater::changed, this, [this] { d->sync(); });
    d->sync();
}

UpdatesView::~UpdatesView()
{
    delete d;
}

void UpdatesView::appeared()
{
    if (d->updater.items().isEmpty() && d->updater.status().isEmpty())
        d->updater.scan();
}

QWidget *UpdatesView::Private::buildEmptyPanel()
{
    auto *panel = new QWidget;
    auto *column = new QVBoxLayout(panel);
    column->setSpacing(8);
    column->addStretch(1);

    auto *icon = new QLabel(panel);
    icon->setPixmap(Theme::symbol(u"arrow.down.circle"_s, kEmptyIcon, Theme::secondaryText()));
    icon->setAlignment(Qt::AlignCenter);
    emptyTitle = label(Theme::Font::title3, false, panel);
    QFont bold = emptyTitle->font();
    bold.setBold(true);
    emptyTitle->setFont(bold);
    emptyTitle->setAlignment(Qt::AlignCenter);
    auto *description = label(Theme::Font::body, true, panel);
    description->setText(L10n::pick(
        u"Covers Homebrew, the Mac App Store and apps with a built-in (Sparkle) updater."_s,
        u"覆盖 Homebrew、Mac App Store 和自带更新器（Sparkle）的应用。"_s));
    description->setAlignment(Qt::AlignCenter);
    description->setWordWrap(true);
    // The layout centres the label at its hinted size, which knows nothing of wrapping:
    // settle the width, then take the height its lines need at that width.
    const int width = qMin(kDescriptionWidth,
                           description->fontMetrics().horizontalAdvance(description->text()) + 8);
    description->setFixedWidth(width);
    description->setMinimumHeight(description->heightForWidth(width));

    column->addWidget(icon);
    column->addWidget(emptyTitle);
    column->addWidget(description, 0, Qt::AlignHCenter);
    column->addStretch(1);
    return panel;
}

QWidget *UpdatesView::Private::buildRow(const OutdatedApp &app)
{
    auto *row = new QWidget;
    auto *line = new QHBoxLayout(row);
    line->setContentsMargins(0, 2, 0, 2);

    auto *text = new QVBoxLayout;
    text->setSpacing(2);
    QLabel *name = label(Theme::Font::headline, false, row);
    name->setText(app.name);
    QLabel *subtitle = label(Theme::Font::caption, true, row);
    subtitle->setText(app.installed + u" → "_s + app.latest + u" · "_s + sourceLabel(app.source));
    text->addWidget(name);
    text->addWidget(subtitle);
    line->addLayout(text);
    line->addStretch(1);

    auto *button = new QPushButton(buttonText(app.source), row);
    QObject::connect(button, &QPushButton::clicked, row, [this, app] { act(app); });
    if (isHomebrew(app.source))
        upgradeButtons.append(button);
    line->addWidget(button);
    return row;
}

void UpdatesView::Private::act(const OutdatedApp &app)
{
    switch (app.source) {
    case OutdatedApp::Source::brewFormula:
    case OutdatedApp::Source::brewCask:
        updater.brewUpgrade(app);
        return;
    case OutdatedApp::Source::appStore:
        AppStore::openAppStoreUpdates();
        return;
    case OutdatedApp::Source::sparkle:
        if (app.appPath && !app.appPath->isEmpty())
            open(*app.appPath);
        return;
    }
}

void UpdatesView::Private::sync()
{
    if (updater.items() != shown)
        syncRows();
    const bool scanning = updater.scanning();
    for (QPushButton *button : std::as_const(upgradeButtons))
        button->setEnabled(!scanning);

    const QString &status = updater.status();
    empty->setVisible(updater.items().isEmpty() && !scanning);
    emptyTitle->setText(status.isEmpty() ? L10n::pick(u"Check for app updates"_s, u"检查应用更新"_s)
                                         : status);

    spinner->setRunning(scanning);
    spinner->setVisible(scanning);
    const int checked = updater.checkedCount();
    statusLine->setFullText(
        scanning && checked > 0 ? status + u" ("_s + QString::number(checked) + u")"_s : status);
    checkNow->setEnabled(!scanning);
}

void UpdatesView::Private::syncRows()
{
    shown = updater.items();
    upgradeButtons.clear();
    // A row may be going away inside its own button's click, so it is only let go here.
    while (rowLayout->count() > 1) {
        QLayoutItem *item = rowLayout->takeAt(0);
        QWidget *row = item->widget();
        delete item;
        row->hide();
        row->deleteLater();
    }
    for (qsizetype i = 0; i < shown.size(); ++i) {
        QWidget *row = buildRow(shown.at(i));
        rowLayout->insertWidget(int(i), row);
        // Now rather than on the layout's next turn, so the page is whole after each change.
        row->show();
    }
}
