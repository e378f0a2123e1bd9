#pragma once

#include "core/models/RestoreModel.h"

#include <QWidget>
#include <functional>

class QLabel;
class QToolButton;

// The Trash box's line for what Quorvel moved there and can put back: hidden while there
// is nothing, else a button that opens a short ticked list with "Put Back".
class RestoreLine final : public QWidget
{
    Q_OBJECT

public:
    // `shown` turns a path into its "~/…" form.
    RestoreLine(RestoreModel::Services services, std::function<QString(const QString &)> shown,
                QWidget *parent = nullptr);

    void refresh();
    RestoreModel &model() { return m_model; }

Q_SIGNALS:
    void restored(); // something may have left the Trash

private:
    void sync();
    void openList();

    RestoreModel m_model;
    std::function<QString(const QString &)> m_shown;
    QToolButton *m_open = nullptr;
    QLabel *m_message = nullptr;
};
