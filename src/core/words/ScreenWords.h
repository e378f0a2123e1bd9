#pragma once

#include <QString>

// The words of screen-cleaning mode.
namespace Words {

QString accessibilityNeeded();
QString lockFailed();
// "Press Esc 3 times quickly to exit  (n/3)".
QString exitHint(int escPresses);

} // namespace Words
