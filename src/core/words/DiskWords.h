#pragma once

#include <QString>

namespace Words {

// The overview's slice names by id: "documents", "applications", "desktop", "downloads",
// "other", "free".
QString diskCategory(const QString &id);

} // namespace Words
