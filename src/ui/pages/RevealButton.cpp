#include "ui/pages/RevealButton.h"

#include "ui/Theme.h"
#include "ui/pages/CleanItemsView.h"

#include <QEvent>

using namespace Qt::StringLiterals;

RevealButton::RevealButton(CleanItemsView *view, QWidget *host) : QToolButton(host), m_view(view)
{
    Q_ASSERT(host->isAncestorOf(view));
    const QString text = CleanItemDelegate::revealText();
    setToolTip(text);
    setAccessibleName(text);
    setIcon(Theme::icon(u"magnifyingglass"_s));
    const QRect painted = CleanItemDelegate::revealRect({});
    setFixedSize(painted.size());
    setIconSize(painted.size() - QSize(8, 8));
    setAutoRaise(true);
    setFocusPolicy(Qt::TabFocus);
    hide();

    connect(this, &QToolButton::clicked, view, &CleanItemsView::revealCurrent);
    connect(view->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &RevealButton::follow);
    connect(view->model(), &QAbstractItemModel::modelReset, this, &RevealButton::follow);
    view->installEventFilter(this);
    setTabOrder(view, this);
    follow();
}

bool RevealButton::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::Move:
    case QEvent::Resize:
    case QEvent::Show:
    case QEvent::Hide:
        follow();
        break;
    default:
        break;
    }
    return QToolButton::eventFilter(watched, event);
}

void RevealButton::follow()
{
    const QModelIndex row = m_view ? m_view->currentIndex() : QModelIndex();
    const bool shown = row.isValid() && m_view->isVisibleTo(parentWidget());
    if (shown) {
        const QRect painted = CleanItemDelegate::revealRect(m_view->visualRect(row));
        move(m_view->viewport()->mapTo(parentWidget(), painted.topLeft()));
        setAccessibleDescription(row.data().toString());
        raise();
    }
    setVisible(shown);
}
