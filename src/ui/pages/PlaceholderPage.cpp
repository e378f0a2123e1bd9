#include "ui/pages/PlaceholderPage.h"

#include "ui/Theme.h"

#include <QLabel>
#include <QVBoxLayout>

PlaceholderPage::PlaceholderPage(ToolPage page, QWidget *parent) : QWidget(parent)
{
    auto *icon = new QLabel(this);
    icon->setPixmap(Theme::symbol(symbolName(page), 48, Theme::secondaryText()));
    icon->setAlignment(Qt::AlignCenter);
    auto *name = new QLabel(title(page), this);
    QFont font = Theme::font(Theme::Font::title3);
    font.setBold(true);
    name->setFont(font);
    name->setAlignment(Qt::AlignCenter);

    auto *layout = new QVBoxLayout(this);
    layout->addStretch(1);
    layout->addWidget(icon);
    layout->addWidget(name);
    layout->addStretch(1);
}
