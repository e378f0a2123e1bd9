#pragma once

#include <QColor>
#include <QFont>
#include <QIcon>
#include <QPixmap>
#include <QString>

// Colours, font roles and our own symbol icons, in one place.
namespace Theme {

QColor accent(); // sRGB (0.55, 0.35, 0.95)
QColor good();
QColor fair();
QColor poor();
// Text at about half strength, and the faint fill behind tracks and rows.
QColor secondaryText();
QColor quaternaryFill();

enum class Font { title, title2, title3, headline, body, callout, caption };
QFont font(Font role);

// Our SVG for a symbol name ("trash", "cpu", …), tinted; a null icon for unknown names.
QIcon icon(const QString &symbolName, const QColor &tint = QColor());
QPixmap symbol(const QString &symbolName, int size, const QColor &tint = QColor());

} // namespace Theme
