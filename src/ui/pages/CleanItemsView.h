#pragma once

#include "core/types/CleanItem.h"

#include <QAbstractListModel>
#include <QIcon>
#include <QKeySequence>
#include <QListView>
#include <QStyledItemDelegate>

class CleanModel;

// The rows of one section: one category's items, ticked from the clean-up model's
// selection. A selection change repaints the ticks in place; only a new list resets.
class CleanItemsModel final : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Role { PathRole = Qt::UserRole + 1, SubtitleRole, BytesRole };

    CleanItemsModel(CleanModel &model, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    // CheckStateRole edits the clean-up model's selection.
    bool setData(const QModelIndex &index, const QVariant &value, int role) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    void setItems(QList<CleanItem> items);
    void refreshTicks();
    const QList<CleanItem> &items() const { return m_items; }
    qint64 totalBytes() const { return m_bytes; }

private:
    CleanModel &m_model;
    QList<CleanItem> m_items;
    qint64 m_bytes = 0;
};

// Paints a row (tick, title over a subtitle cut at the end, size, reveal button) without a
// widget of its own, so a section of thousands of items stays cheap. The keyboard and
// assistive technology reach the painted reveal button through the view and RevealButton.
class CleanItemDelegate final : public QStyledItemDelegate
{
    Q_OBJECT

public:
    explicit CleanItemDelegate(QObject *parent = nullptr);

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    bool editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
                     const QModelIndex &index) override;
    bool helpEvent(QHelpEvent *event, QAbstractItemView *view, const QStyleOptionViewItem &option,
                   const QModelIndex &index) override;

    // Every row has this height; the geometry of a row's two clickable parts.
    static int rowHeight();
    static QRect tickRect(const QRect &row);
    static QRect revealRect(const QRect &row);
    // The reveal action's name (also the button's tooltip) and its key on the current row.
    static QString revealText();
    static QKeySequence revealKey();

Q_SIGNALS:
    void revealRequested(const QString &path);

private:
    QIcon m_reveal;
    QFont m_sizeFont;
};

// A section's list, exactly as tall as its rows: the page scrolls, never the list.
// Space ticks the current row; the reveal key and the context menu reveal it.
class CleanItemsView final : public QListView
{
    Q_OBJECT

public:
    explicit CleanItemsView(CleanItemsModel *rows, QWidget *parent = nullptr);

    CleanItemsModel *rows() const { return m_rows; }
    CleanItemDelegate *delegate() const { return m_delegate; }
    void revealCurrent();

Q_SIGNALS:
    // From the painted button, the key, the context menu or RevealButton.
    void revealRequested(const QString &path);

protected:
    void wheelEvent(QWheelEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;

private:
    void fitHeight();

    CleanItemsModel *m_rows;
    CleanItemDelegate *m_delegate;
};
