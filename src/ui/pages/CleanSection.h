#pragma once

#include "core/types/CleanItem.h"

#include <QWidget>

class CleanItemsModel;
class CleanItemsView;
class CleanModel;
class QLabel;
class QToolButton;
class SectionHeader;

// One category of a clean-up page: the header (title, size, All/None for this category
// only), the rows or a line saying why there are none, and the category's note.
class CleanSection final : public QWidget
{
    Q_OBJECT

public:
    CleanSection(CleanModel &model, CleanCategory category, QWidget *parent = nullptr);

    CleanCategory category() const { return m_category; }
    CleanItemsView *view() const { return m_view; }

    // A new list for this category (after a scan or a removal).
    void setItems(QList<CleanItem> items);
    // Ticks and the empty line from the model's current state.
    void refresh();

private:
    void tickAll(bool on);

    CleanModel &m_model;
    CleanCategory m_category;
    CleanItemsModel *m_rows;
    SectionHeader *m_header;
    QToolButton *m_all;
    QToolButton *m_none;
    QLabel *m_empty;
    CleanItemsView *m_view;
};
