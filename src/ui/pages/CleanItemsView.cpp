#include "ui/pages/CleanItemsView.h"

#include "core/models/CleanModel.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/text/PathText.h"
#include "ui/Theme.h"

#include <QApplication>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QToolTip>

using namespace Qt::StringLiterals;

namespace {

constexpr int kPad = 8;
constexpr int kRevealSize = 22;
// Cmd+Shift+R on a Mac, as "Show in Finder" is in Apple's own apps.
constexpr QKeyCombination kRevealKey(Qt::ControlModifier | Qt::ShiftModifier, Qt::Key_R);

} // namespace

QString CleanItemDelegate::revealText()
{
    return L10n::pick(u"Show in Finder"_s, u"在访达中显示"_s);
}

QKeySequence CleanItemDelegate::revealKey()
{
    return QKeySequence(kRevealKey);
}

// --- rows

CleanItemsModel::CleanItemsModel(CleanModel &model, QObject *parent)
    : QAbstractListModel(parent), m_model(model)
{}

int CleanItemsModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_items.size());
}

QVariant CleanItemsModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const CleanItem &item = m_items.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return item.title;
    case Qt::ToolTipRole:
    case SubtitleRole:
        return item.subtitle;
    case Qt::CheckStateRole:
        return int(m_model.selected().contains(item.path) ? Qt::Checked : Qt::Unchecked);
    case PathRole:
        return item.path;
    case BytesRole:
        return qlonglong(item.bytes);
    default:
        return {};
    }
}

bool CleanItemsModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (role != Qt::CheckStateRole || !checkIndex(index, CheckIndexOption::IndexIsValid))
        return false;
    // The tick repaints when the clean-up model announces the new selection.
    m_model.setSelected(m_items.at(index.row()).path, value.toInt() == Qt::Checked);
    return true;
}

Qt::ItemFlags CleanItemsModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable;
}

void CleanItemsModel::setItems(QList<CleanItem> items)
{
    beginResetModel();
    m_items = std::move(items);
    m_bytes = 0;
    for (const CleanItem &item : std::as_const(m_items))
        m_bytes += item.bytes;
    endResetModel();
}

void CleanItemsModel::refreshTicks()
{
    if (!m_items.isEmpty())
        Q_EMIT dataChanged(index(0), index(rowCount() - 1), {Qt::CheckStateRole});
}

// --- painting

CleanItemDelegate::CleanItemDelegate(QObject *parent)
    : QStyledItemDelegate(parent), m_reveal(Theme::icon(u"magnifyingglass"_s)),
      m_sizeFont(Theme::figures(Theme::Font::body))
{}

int CleanItemDelegate::rowHeight()
{
    const QFontMetrics title(Theme::font(Theme::Font::body));
    const QFontMetrics caption(Theme::font(Theme::Font::caption));
    return title.height() + 1 + caption.height() + 2 * kPad;
}

QRect CleanItemDelegate::tickRect(const QRect &row)
{
    const int side = QApplication::style()->pixelMetric(QStyle::PM_IndicatorWidth);
    return {row.left() + kPad, row.center().y() - side / 2, side, side};
}

QRect CleanItemDelegate::revealRect(const QRect &row)
{
    return {row.right() - kPad - kRevealSize + 1, row.center().y() - kRevealSize / 2, kRevealSize,
            kRevealSize};
}

void CleanItemDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                              const QModelIndex &index) const
{
    QStyleOptionViewItem panel = option;
    initStyleOption(&panel, index);
    panel.text.clear();
    panel.features &= ~QStyleOptionViewItem::HasCheckIndicator;
    QStyle *style = option.widget ? option.widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &panel, painter, option.widget);

    QStyleOptionButton tick;
    tick.rect = tickRect(option.rect);
    tick.state = QStyle::State_Enabled |
                 (index.data(Qt::CheckStateRole).toInt() == Qt::Checked ? QStyle::State_On
                                                                        : QStyle::State_Off);
    style->drawPrimitive(QStyle::PE_IndicatorCheckBox, &tick, painter, option.widget);

    const QRect reveal = revealRect(option.rect);
    m_reveal.paint(painter, reveal.adjusted(4, 4, -4, -4));

    painter->save();
    const QFont titleFont = Theme::font(Theme::Font::body);
    const QFont captionFont = Theme::font(Theme::Font::caption);
    const QFontMetrics titleMetrics(titleFont);
    const QFontMetrics captionMetrics(captionFont);

    const QString size = Fmt::bytes(index.data(CleanItemsModel::BytesRole).toLongLong());
    const int sizeWidth = QFontMetrics(m_sizeFont).horizontalAdvance(size);
    const QRect sizeRect(reveal.left() - kPad - sizeWidth, option.rect.top(), sizeWidth,
                         option.rect.height());
    painter->setFont(m_sizeFont);
    painter->setPen(Theme::secondaryText());
    painter->drawText(sizeRect, Qt::AlignRight | Qt::AlignVCenter, size);

    const int left = tick.rect.right() + 1 + kPad;
    const int width = qMax(0, sizeRect.left() - 2 * kPad - left);
    const int top = option.rect.top() + kPad;
    painter->setPen(option.palette.color(QPalette::Text));
    painter->setFont(titleFont);
    painter->drawText(QRect(left, top, width, titleMetrics.height()), Qt::AlignLeft,
                      titleMetrics.elidedText(index.data().toString(), Qt::ElideRight, width));
    painter->setFont(captionFont);
    painter->setPen(Theme::secondaryText());
    const QString subtitle = index.data(CleanItemsModel::SubtitleRole).toString();
    painter->drawText(QRect(left, top + titleMetrics.height() + 1, width, captionMetrics.height()),
                      Qt::AlignLeft, captionMetrics.elidedText(subtitle, Qt::ElideRight, width));
    painter->restore();
}

QSize CleanItemDelegate::sizeHint(const QStyleOptionViewItem &, const QModelIndex &) const
{
    return {200, rowHeight()};
}

bool CleanItemDelegate::editorEvent(QEvent *event, QAbstractItemModel *model,
                                    const QStyleOptionViewItem &option, const QModelIndex &index)
{
    const bool checked = index.data(Qt::CheckStateRole).toInt() == Qt::Checked;
    const auto toggle = [&] {
        return model->setData(index, int(checked ? Qt::Unchecked : Qt::Checked),
                              Qt::CheckStateRole);
    };
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
    case QEvent::MouseButtonRelease: {
        const auto *mouse = static_cast<QMouseEvent *>(event);
        if (mouse->button() != Qt::LeftButton)
            return false;
        const QPoint at = mouse->position().toPoint();
        const bool onTick = tickRect(option.rect).contains(at);
        const bool onReveal = revealRect(option.rect).contains(at);
        // Acting on release, like a button: a press that slides off does nothing.
        if (event->type() == QEvent::MouseButtonRelease) {
            if (onTick)
                toggle();
            else if (onReveal)
                Q_EMIT revealRequested(index.data(CleanItemsModel::PathRole).toString());
        }
        return onTick || onReveal;
    }
    case QEvent::KeyPress: {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key != Qt::Key_Space && key != Qt::Key_Select)
            return false;
        toggle();
        return true;
    }
    default:
        return false;
    }
}

bool CleanItemDelegate::helpEvent(QHelpEvent *event, QAbstractItemView *view,
                                  const QStyleOptionViewItem &option, const QModelIndex &index)
{
    if (event->type() == QEvent::ToolTip && revealRect(option.rect).contains(event->pos())) {
        QToolTip::showText(event->globalPos(), revealText(), view);
        return true;
    }
    return QStyledItemDelegate::helpEvent(event, view, option, index);
}

// --- list

CleanItemsView::CleanItemsView(CleanItemsModel *rows, QWidget *parent)
    : QListView(parent), m_rows(rows), m_delegate(new CleanItemDelegate(this))
{
    setModel(rows);
    setItemDelegate(m_delegate);
    setUniformItemSizes(true);
    setSelectionMode(QAbstractItemView::NoSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFrameShape(QFrame::NoFrame);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    viewport()->setAutoFillBackground(false);
    connect(rows, &QAbstractItemModel::modelReset, this, &CleanItemsView::fitHeight);
    // A list with rows always has a current one, so the keyboard's actions have a target.
    connect(rows, &QAbstractItemModel::modelReset, this, [this] {
        if (m_rows->rowCount() > 0)
            setCurrentIndex(m_rows->index(0));
    });
    connect(m_delegate, &CleanItemDelegate::revealRequested, this,
            &CleanItemsView::revealRequested);
    fitHeight();
}

void CleanItemsView::revealCurrent()
{
    if (currentIndex().isValid())
        Q_EMIT revealRequested(currentIndex().data(CleanItemsModel::PathRole).toString());
}

void CleanItemsView::keyPressEvent(QKeyEvent *event)
{
    if (event->keyCombination() == kRevealKey) {
        revealCurrent();
        event->accept();
        return;
    }
    QListView::keyPressEvent(event);
}

void CleanItemsView::contextMenuEvent(QContextMenuEvent *event)
{
    const bool fromKeyboard = event->reason() == QContextMenuEvent::Keyboard;
    const QModelIndex row = fromKeyboard ? currentIndex() : indexAt(event->pos());
    if (!row.isValid())
        return;
    setCurrentIndex(row);
    auto *menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    QAction *reveal = menu->addAction(CleanItemDelegate::revealText());
    reveal->setShortcut(CleanItemDelegate::revealKey()); // shown, so the key can be learnt
    const QString path = row.data(CleanItemsModel::PathRole).toString();
    connect(reveal, &QAction::triggered, this, [this, path] { Q_EMIT revealRequested(path); });
    const QPoint at = fromKeyboard ? visualRect(row).center() : event->pos();
    menu->popup(viewport()->mapToGlobal(at));
}

void CleanItemsView::wheelEvent(QWheelEvent *event)
{
    event->ignore(); // to the page's scroll area
}

void CleanItemsView::fitHeight()
{
    setFixedHeight(m_rows->rowCount() * CleanItemDelegate::rowHeight() + 2 * frameWidth());
}
