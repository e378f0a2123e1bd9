#pragma once

#include <QPointer>
#include <QToolButton>

class CleanItemsView;

// The one real button behind a list's painted reveal buttons: it sits over the current
// row's, so Tab reaches it and screen readers announce it by the tooltip's text (with the
// row's title as its description); pressing it reveals the current row. `host` is an
// ancestor of the view that lists it as a child, as a list's own children are not.
class RevealButton final : public QToolButton
{
    Q_OBJECT

public:
    RevealButton(CleanItemsView *view, QWidget *host);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // Onto the current row, or hidden when there is none.
    void follow();

    QPointer<CleanItemsView> m_view;
};
