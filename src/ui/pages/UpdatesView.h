#pragma once

#include <QWidget>
#include <functional>

class AppUpdater;

// The app updates page: one row per finding with its source's action, an empty-state
// panel over the list while there is nothing to show, and the status bar with Check now.
// It keeps no state of its own: everything is read from the updater on each change.
class UpdatesView final : public QWidget
{
    Q_OBJECT

public:
    // Launches an application bundle; the platform's by default, a probe in tests.
    using OpenApplication = std::function<void(const QString &bundlePath)>;

    UpdatesView(AppUpdater &updater, OpenApplication openApplication, QWidget *parent = nullptr);
    ~UpdatesView() override;

    // The page became visible: checks only before this updater's first scan.
    void appeared();

private:
    struct Private;
    Private *d;
};
