#include "ui/kit/ProminentButton.h"

#include "ui/Theme.h"

using namespace Qt::StringLiterals;

namespace {

QString rgba(const QColor &c)
{
    return u"rgba(%1, %2, %3, %4)"_s.arg(c.red()).arg(c.green()).arg(c.blue()).arg(c.alpha());
}

} // namespace

ProminentButton::ProminentButton(const QString &text, const QString &symbolName, QWidget *parent)
    : QPushButton(text, parent)
{
    const QColor accent = Theme::accent();
    QColor disabled = accent;
    disabled.setAlpha(100);
    // A style sheet because palettes do not reach the button face of every style (Fusion
    // draws its own gradient); it stays on this widget, nothing cascades from it.
    setStyleSheet(
        u"QPushButton { background-color: %1; color: white; border: none;"
        u" border-radius: 6px; padding: 5px 14px; }"
        u" QPushButton:hover { background-color: %2; }"
        u" QPushButton:pressed { background-color: %3; }"
        u" QPushButton:disabled { background-color: %4; color: rgba(255, 255, 255, 170); }"_s.arg(
            rgba(accent), rgba(accent.lighter(110)), rgba(accent.darker(115)), rgba(disabled)));
    if (!symbolName.isEmpty()) {
        // White on accent; Qt derives the dimmed disabled pixmap from it.
        setIcon(Theme::icon(symbolName, Qt::white));
        setIconSize(QSize(16, 16));
    }
    setCursor(Qt::PointingHandCursor);
}
