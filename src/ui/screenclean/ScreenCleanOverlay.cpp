#include "ui/screenclean/ScreenCleanOverlay.h"

#include "core/screenclean/ScreenCleanMode.h"
#include "core/text/L10n.h"
#include "ui/Theme.h"

#include <QLabel>
#include <QPainter>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr int kSymbolSize = 56;
constexpr int kLineGap = 8;
constexpr int kHintGap = 10;

QColor white(double opacity)
{
    QColor c(Qt::white);
    c.setAlphaF(float(opacity));
    return c;
}

QLabel *line(QWidget *parent, const QString &name, Theme::Font role, double opacity)
{
    auto *l = new QLabel(parent);
    l->setObjectName(name);
    l->setFont(Theme::font(role));
    l->setTextFormat(Qt::PlainText);
    l->setAlignment(Qt::AlignCenter);
    QPalette p = l->palette();
    p.setColor(QPalette::WindowText, white(opacity));
    l->setPalette(p);
    return l;
}

} // namespace

ScreenCleanOverlay::ScreenCleanOverlay(ScreenCleanMode &mode, QWidget *parent)
    : QWidget(parent), m_mode(mode)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFocusPolicy(Qt::NoFocus);
    setAttribute(Qt::WA_OpaquePaintEvent);

    auto *symbol = new QLabel(this);
    symbol->setObjectName(u"symbol"_s);
    symbol->setAlignment(Qt::AlignCenter);
    symbol->setPixmap(Theme::symbol(u"sparkles"_s, kSymbolSize, white(0.35)));
    QLabel *title = line(this, u"title"_s, Theme::Font::title2, 0.70);
    title->setText(L10n::pick(u"Screen Cleaning Mode"_s, u"清屏模式"_s));
    QLabel *locked = line(this, u"locked"_s, Theme::Font::body, 0.45);
    locked->setText(L10n::pick(u"Keyboard, trackpad and mouse are locked. Wipe away."_s,
                               u"键盘、触控板和鼠标已锁定，放心擦拭。"_s));
    m_hint = line(this, u"hint"_s, Theme::Font::callout, 0.35);
    m_hint->setFont(Theme::figures(Theme::Font::callout)); // the count changes in place

    auto *column = new QVBoxLayout(this);
    column->setSpacing(0);
    column->addStretch(1);
    column->addWidget(symbol);
    column->addSpacing(kLineGap);
    column->addWidget(title);
    column->addSpacing(kLineGap);
    column->addWidget(locked);
    column->addSpacing(kHintGap);
    column->addWidget(m_hint);
    column->addStretch(1);

    const auto sync = [this] { m_hint->setText(m_mode.exitHint()); };
    connect(&mode, &ScreenCleanMode::changed, this, sync);
    sync();
}

void ScreenCleanOverlay::paintEvent(QPaintEvent *)
{
    QPainter(this).fillRect(rect(), Qt::black);
}
