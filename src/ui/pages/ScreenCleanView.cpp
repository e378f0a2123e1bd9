#include "ui/pages/ScreenCleanView.h"

ScreenCleanView::ScreenCleanView(ScreenCleanMode &, QWidget *parent) : QWidget(parent) {}

void ScreenCleanView::appeared() {}
