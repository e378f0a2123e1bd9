#include "ui/kit/ElidedLabel.h"

#include <QResizeEvent>

ElidedLabel::ElidedLabel(Qt::TextElideMode mode, QWidget *parent) : QLabel(parent), m_mode(mode)
{
    // Plain: paths and names may contain '<' or '&', which rich text would swallow.
    setTextFormat(Qt::PlainText);
    setWordWrap(false);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

void ElidedLabel::setFullText(const QString &text)
{
    m_full = text;
    updateGeometry();
    updateElided();
}

QSize ElidedLabel::sizeHint() const
{
    const QMargins m = contentsMargins();
    return {fontMetrics().horizontalAdvance(m_full) + m.left() + m.right(),
            QLabel::sizeHint().height()};
}

QSize ElidedLabel::minimumSizeHint() const
{
    // Room for the ellipsis alone: the layout may squeeze us, never the other way round.
    const QMargins m = contentsMargins();
    return {fontMetrics().horizontalAdvance(QChar(0x2026)) + m.left() + m.right(),
            QLabel::minimumSizeHint().height()};
}

void ElidedLabel::resizeEvent(QResizeEvent *event)
{
    QLabel::resizeEvent(event);
    if (event->oldSize().width() != event->size().width())
        updateElided();
}

void ElidedLabel::updateElided()
{
    const QString shown = fontMetrics().elidedText(m_full, m_mode, qMax(0, contentsRect().width()));
    if (shown != QLabel::text())
        QLabel::setText(shown);
    setToolTip(shown == m_full ? QString() : m_full);
}
