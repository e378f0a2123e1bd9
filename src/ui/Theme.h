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

enum class Font { title, title2, title3, headline, body, callout, caption, caption2 };
QFont font(Font role);
// The role's font for figures that change in place: digits of one width. Qt 6.4 has no
// way to ask a font for tabular figures, so this is the interface font when its digits
// already are, else the first of a few families whose digits are (Helvetica Neue on a
// Mac, DejaVu Sans, Noto Sans), else the system's fixed-pitch font.
QFont figures(Font role);
bool hasTabularDigits(const QFont &font);

// Our SVG for a symbol name ("trash", "cpu", …), tinted; a null icon for unknown names.
QIcon icon(const QString &symbolName, const QColor &tint = QColor());
QPixmap symbol(const QString &symbolName, int size, const QColor &tint = QColor());

} // namespace Theme
