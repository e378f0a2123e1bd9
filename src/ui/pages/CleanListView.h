#pragma once

#include <QWidget>
#include <functional>

class CleanModel;

// One clean-up page: sections per category with All/None, rows with a tick, title,
// elided subtitle, size and reveal button, the bottom bar and the removal confirmation.
// Rows are drawn by a view with a delegate, so 10,000 items cost no widget each.
class CleanListView final : public QWidget
{
    Q_OBJECT

public:
    // `reveal` shows an item in the file manager.
    CleanListView(CleanModel &model, std::function<void(const QString &)> reveal,
                  QWidget *parent = nullptr);
    ~CleanListView() override;

    // The page became visible (first show or a page switch): scans the first time.
    void appeared();

private:
    void confirmRemoval();

    struct Private;
    Private *d;
};
