#pragma once

#include <QDateTime>
#include <QString>

namespace Platform {

// The date (no time) in the user's locale, medium style ("Mar 5, 2024" in en_US), in
// local time.
QString mediumDate(const QDateTime &when);

} // namespace Platform
