#pragma once

#include "core/models/ToolPage.h"

#include <QWidget>

// A neutral page for the pages still to come: the page's icon and title.
class PlaceholderPage final : public QWidget
{
    Q_OBJECT

public:
    explicit PlaceholderPage(ToolPage page, QWidget *parent = nullptr);
};
