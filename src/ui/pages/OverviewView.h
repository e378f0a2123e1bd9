#pragma once

#include "core/models/RestoreModel.h"
#include "core/system/System.h"

#include <QString>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>

class OverviewModel;
class SystemStats;

// The first page: where the startup disk's space goes, the Trash and its emptying, the
// login switch, the version and the safety promise. Updates in place as the model and
// the statistics change.
class OverviewView final : public QWidget
{
    Q_OBJECT

public:
    // What the page takes from the system beyond the models; the platform's by default.
    struct Settings
    {
        std::function<bool()> loginEnabled;
        // The reason when the system refuses; the page only re-reads the state.
        std::function<std::optional<QString>(bool)> setLogin;
        std::function<void()> openFullDiskAccess;
        std::optional<QString> version; // none: a development build
        // What of the Trash can go back; none: the line is never shown.
        RestoreModel::Services restore{};
        std::function<QString(const QString &)> shown{};

        // The real ones; `system` outlives the view.
        static Settings of(const System &system);
    };

    OverviewView(OverviewModel &model, SystemStats &stats, const System &system,
                 QWidget *parent = nullptr);
    OverviewView(OverviewModel &model, SystemStats &stats, Settings settings,
                 QWidget *parent = nullptr);
    ~OverviewView() override;

    // Every time the page is shown: re-measures the Trash, and the folders while there
    // is no result yet.
    void appeared();

private:
    void confirmEmptying();
    void loginToggled(bool on);

    struct Private;
    std::unique_ptr<Private> d;
};
