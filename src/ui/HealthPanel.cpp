#include "ui/HealthPanel.h"

#include "core/health/SystemStats.h"
#include "core/text/L10n.h"
#include "core/words/HealthTiles.h"
#include "ui/Theme.h"
#include "ui/kit/ProminentButton.h"
#include "ui/kit/TintedBox.h"

#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

constexpr int kTileIcon = 14;
constexpr int kLineIcon = 16;
constexpr int kRateIcon = 11;
constexpr int kComputerIcon = 30;

void setTextColour(QWidget *w, const QColor &colour)
{
    QPalette p = w->palette();
    p.setColor(w->foregroundRole(), colour);
    w->setPalette(p);
}

// Back to the inherited colour, so a warning's orange does not outlive the warning.
void clearTextColour(QWidget *w)
{
    w->setPalette(QPalette());
}

// `figures`: digits of equal width, so a changing figure does not jitter every sample.
QLabel *label(QWidget *parent, Theme::Font role, bool bold = false, const QString &name = {},
              bool figures = false)
{
    auto *l = new QLabel(parent);
    QFont f = figures ? Theme::figures(role) : Theme::font(role);
    if (bold)
        f.setBold(true);
    l->setFont(f);
    l->setTextFormat(Qt::PlainText);
    l->setObjectName(name);
    return l;
}

QLabel *iconLabel(QWidget *parent, const QString &symbol, int size, const QColor &tint)
{
    auto *l = new QLabel(parent);
    l->setPixmap(Theme::symbol(symbol, size, tint));
    l->setFixedSize(size, size);
    return l;
}

QColor gradeColour(HealthGrade grade)
{
    switch (grade) {
    case HealthGrade::good:
        break;
    case HealthGrade::fair:
        return Theme::fair();
    case HealthGrade::poor:
        return Theme::poor();
    }
    return Theme::good();
}

// A capsule track with, from the leading edge, a capsule filled to `ratio`.
class CapsuleBar final : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(double ratio READ ratio)
    Q_PROPERTY(QColor color READ color)

public:
    explicit CapsuleBar(QWidget *parent) : QWidget(parent)
    {
        setFixedHeight(6);
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    }
    double ratio() const { return m_ratio; }
    QColor color() const { return m_color; }
    void set(double ratio, const QColor &color)
    {
        ratio = ratio > 0 ? std::min(ratio, 1.0) : 0; // NaN too
        if (ratio == m_ratio && color == m_color)
            return;
        m_ratio = ratio;
        m_color = color;
        update();
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF track = rect();
        QPainterPath capsule;
        capsule.addRoundedRect(track, track.height() / 2, track.height() / 2);
        painter.fillPath(capsule, Theme::quaternaryFill());
        QRectF fill = track;
        fill.setWidth(track.width() * m_ratio);
        if (layoutDirection() == Qt::RightToLeft)
            fill.moveRight(track.right());
        painter.setClipPath(capsule);
        QPainterPath filled;
        filled.addRoundedRect(fill, track.height() / 2, track.height() / 2);
        painter.fillPath(filled, m_color);
    }

private:
    double m_ratio = 0;
    QColor m_color;
};

class StatTile final : public QWidget
{
public:
    StatTile(const QString &name, QWidget *parent) : QWidget(parent)
    {
        setObjectName(name);
        // Two equal columns whatever the texts: the grid's stretch alone sets the width.
        setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
        auto *column = new QVBoxLayout(this);
        column->setContentsMargins(10, 10, 10, 10);
        column->setSpacing(4);
        auto *head = new QHBoxLayout;
        head->setSpacing(5);
        m_icon = new QLabel(this);
        m_icon->setObjectName(u"icon"_s);
        m_icon->setFixedSize(kTileIcon, kTileIcon);
        m_title = label(this, Theme::Font::caption, false, u"title"_s);
        setTextColour(m_title, Theme::secondaryText());
        head->addWidget(m_icon);
        head->addWidget(m_title, 1);
        column->addLayout(head);
        m_value = label(this, Theme::Font::title3, true, u"value"_s, true);
        column->addWidget(m_value);
        m_sub = label(this, Theme::Font::caption2, false, u"sub"_s);
        setTextColour(m_sub, Theme::secondaryText());
        column->addWidget(m_sub);
        m_bar = new CapsuleBar(this);
        m_bar->setObjectName(u"bar"_s);
        column->addWidget(m_bar);
    }

    void setCard(const StatCard &card)
    {
        if (card.icon != m_iconName) { // the battery's icon follows the power source
            m_iconName = card.icon;
            m_icon->setPixmap(Theme::symbol(card.icon, kTileIcon, Theme::accent()));
        }
        m_title->setText(card.title);
        m_value->setText(card.value);
        m_sub->setText(card.sub);
        if (card.warn)
            setTextColour(m_value, Theme::fair());
        else
            clearTextColour(m_value);
        m_bar->set(card.ratio, card.warn ? Theme::fair() : Theme::accent());
    }

private:
    QLabel *m_icon;
    QLabel *m_title;
    QLabel *m_value;
    QLabel *m_sub;
    CapsuleBar *m_bar;
    QString m_iconName;
};

} // namespace

struct HealthPanel::Parts
{
    QLabel *grade = nullptr;
    std::array<StatTile *, 4> tiles{};
    QLabel *network = nullptr;
    QLabel *up = nullptr;
    QLabel *down = nullptr;
};

HealthPanel::HealthPanel(SystemStats &stats, std::function<void()> openTools,
                         std::function<void()> quit, const QString &computerName, QWidget *parent)
    : QWidget(parent), m_stats(stats), m_openTools(std::move(openTools)), m_quit(std::move(quit)),
      m_parts(std::make_unique<Parts>())
{
    setFixedWidth(kWidth);
    auto *root = new QVBoxLayout(this);
    root->setContentsMargins(14, 14, 14, 14);
    root->setSpacing(12);

    auto *header = new QHBoxLayout;
    auto *lines = new QVBoxLayout;
    lines->setSpacing(2);
    auto *titleRow = new QHBoxLayout;
    titleRow->setSpacing(5);
    QLabel *heading = label(this, Theme::Font::title3, true, u"heading"_s);
    heading->setText(HealthTiles::headingLabel());
    m_parts->grade = label(this, Theme::Font::title3, true, u"grade"_s);
    titleRow->addWidget(heading);
    titleRow->addWidget(m_parts->grade);
    titleRow->addStretch(1);
    lines->addLayout(titleRow);
    QLabel *name = label(this, Theme::Font::caption, false, u"computerName"_s);
    name->setText(HealthTiles::computerLabel(computerName));
    lines->addWidget(name);
    header->addLayout(lines, 1);
    header->addWidget(iconLabel(this, u"laptopcomputer"_s, kComputerIcon, Theme::accent()));
    root->addLayout(header);

    auto *grid = new QGridLayout;
    grid->setSpacing(10);
    grid->setColumnStretch(0, 1);
    grid->setColumnStretch(1, 1);
    const std::array<QString, 4> tileNames{u"cpuTile"_s, u"memoryTile"_s, u"diskTile"_s,
                                           u"batteryTile"_s};
    for (int i = 0; i < 4; ++i) {
        m_parts->tiles[i] = new StatTile(tileNames[i], this);
        grid->addWidget(m_parts->tiles[i], i / 2, i % 2);
    }
    root->addLayout(grid);

    // The line's symbols never change with the figures, so they are drawn once.
    const NetworkLine symbols = HealthTiles::network(HealthTiles::fromStats(m_stats));
    auto *box = new TintedBox(this);
    box->setObjectName(u"networkBox"_s);
    auto *net = new QHBoxLayout(box);
    net->setContentsMargins(10, 8, 10, 8);
    net->setSpacing(6);
    net->addWidget(iconLabel(box, symbols.icon, kLineIcon, Theme::accent()));
    m_parts->network = label(box, Theme::Font::body, false, u"network"_s);
    net->addWidget(m_parts->network, 1);
    m_parts->up = label(box, Theme::Font::caption, false, u"up"_s, true);
    m_parts->down = label(box, Theme::Font::caption, false, u"down"_s, true);
    net->addWidget(iconLabel(box, symbols.upIcon, kRateIcon, QColor()));
    net->addWidget(m_parts->up);
    net->addSpacing(6);
    net->addWidget(iconLabel(box, symbols.downIcon, kRateIcon, QColor()));
    net->addWidget(m_parts->down);
    root->addWidget(box);

    auto *divider = new QFrame(this);
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Sunken);
    root->addWidget(divider);

    auto *actions = new QHBoxLayout;
    auto *open =
        new ProminentButton(L10n::pick(u"Open Quorvel"_s, u"打开 Quorvel"_s), u"sparkles"_s, this);
    open->setObjectName(u"openTools"_s);
    auto *quitButton = new QToolButton(this);
    quitButton->setObjectName(u"quit"_s);
    quitButton->setText(L10n::pick(u"Quit"_s, u"退出"_s));
    quitButton->setAutoRaise(true);
    setTextColour(quitButton, Theme::secondaryText());
    actions->addWidget(open);
    actions->addStretch(1);
    actions->addWidget(quitButton);
    root->addLayout(actions);

    connect(open, &QPushButton::clicked, this, [this] {
        if (window()->windowType() == Qt::Popup)
            window()->close();
        if (m_openTools)
            m_openTools();
    });
    connect(quitButton, &QToolButton::clicked, this, [this] {
        if (m_quit)
            m_quit();
    });
    connect(&m_stats, &SystemStats::changed, this, &HealthPanel::refresh);
    refresh();
}

HealthPanel::~HealthPanel() = default;

void HealthPanel::refresh()
{
    const HealthTiles::Snapshot snapshot = HealthTiles::fromStats(m_stats);
    const HealthGrade grade = HealthTiles::grade(snapshot);
    m_parts->grade->setText(HealthTiles::gradeWord(grade));
    setTextColour(m_parts->grade, gradeColour(grade));

    const std::array<StatCard, 4> cards = HealthTiles::tiles(snapshot);
    for (size_t i = 0; i < cards.size(); ++i)
        m_parts->tiles[i]->setCard(cards[i]);

    const NetworkLine line = HealthTiles::network(snapshot);
    m_parts->network->setText(line.label);
    m_parts->up->setText(line.up);
    m_parts->down->setText(line.down);
}

#include "HealthPanel.moc"
