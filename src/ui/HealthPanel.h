#pragma once

#include <QWidget>
#include <functional>
#include <memory>

class SystemStats;

// The menu-bar panel: grade, four tiles, the network line, Open and Quit. Draws only
// what the core's tile model says; redraws on each sample. 380 wide.
// Open closes the panel's window first when that window is a popup, then calls openTools.
// Parts carry object names (grade, cpuTile … batteryTile with value/sub/icon/bar) for tests.
class HealthPanel final : public QWidget
{
    Q_OBJECT

public:
    static constexpr int kWidth = 380;

    // `computerName` as the system gives it (System::computerName); empty reads "Mac".
    HealthPanel(SystemStats &stats, std::function<void()> openTools, std::function<void()> quit,
                const QString &computerName = {}, QWidget *parent = nullptr);
    ~HealthPanel() override;

private:
    struct Parts;
    // Refills the existing labels and bars; widgets are built once, in the constructor.
    void refresh();
    SystemStats &m_stats;
    std::function<void()> m_openTools;
    std::function<void()> m_quit;
    std::unique_ptr<Parts> m_parts;
};
