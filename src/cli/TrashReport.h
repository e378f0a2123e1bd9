#pragma once

#include <QString>

class OverviewModel;

// The Trash's figures as `overview` and `trash` show them.
namespace TrashReport {

// Asks a model that holds no figures yet for them; returns once they (or "unreadable")
// are in.
void refresh(OverviewModel &model);
// Whether the model holds figures from a finished measurement.
bool measured(const OverviewModel &model);
// "3 item(s), 1.2 MB", or "unreadable", in the current language.
QString figures(const OverviewModel &model);

} // namespace TrashReport
