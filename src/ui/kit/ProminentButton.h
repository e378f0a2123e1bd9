#pragma once

#include <QPushButton>

// The accent-filled button of a page's main action.
class ProminentButton final : public QPushButton
{
    Q_OBJECT

public:
    explicit ProminentButton(const QString &text, const QString &symbolName = {},
                             QWidget *parent = nullptr);
};
