#pragma once

#include "core/types/CleanItem.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

class CleanModel;

// What `scan` and `clean` share: the pages they accept, running a page's scan, and how an
// item is shown.
namespace CleanPage {

// The tools window's raw page names that have a clean-up list, in sidebar order.
QStringList names();
// The page's categories in its model's order; nullopt for any other page.
std::optional<QList<CleanCategory>> categories(const QString &page);

// Starts the model's scan and returns once its results are in, showing its progress on a
// terminal's standard error.
void scan(CleanModel &model);

// "[x]" / "[ ]" (only with `tick`), the size, the title and the subtitle, on one line.
QString itemLine(const CleanItem &item, std::optional<bool> tick);
QJsonObject itemJson(const CleanItem &item, bool selected);
qint64 totalBytes(const QList<CleanItem> &items);
// "3 item(s), 1.2 MB" in the current language.
QString countAndSize(qsizetype count, qint64 bytes);

} // namespace CleanPage
