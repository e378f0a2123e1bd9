#include "ui/pages/UpdatesView.h"

UpdatesView::UpdatesView(AppUpdater &, QWidget *parent) : QWidget(parent) {}

void UpdatesView::appeared() {}
