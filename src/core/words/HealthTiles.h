#pragma once

#include "core/health/HealthTypes.h"
#include "core/types/DiskUsage.h"

#include <QList>
#include <QString>
#include <array>

class SystemStats;

// One tile of the health panel. The icon is a symbol name of the platform's set; the
// panel maps it to its own artwork.
struct StatCard
{
    QString icon;
    QString title;
    QString value;
    QString sub;
    double ratio = 0; // fill of the bar; the view limits it to 0–1
    bool warn = false;
};

// The line under the tiles: "Network", or "Network · en0", and the two rates.
struct NetworkLine
{
    QString icon;
    QString label;
    QString upIcon;
    QString up;
    QString downIcon;
    QString down;
};

// Everything the health panel shows, as texts in the current language. The panel and the
// command line only lay these out, so both say exactly the same.
namespace HealthTiles {

// The sampler's published figures at one moment, so texts can be built without a model.
struct Snapshot
{
    double cpuLoad = 0;
    qint64 memoryUsed = 0;
    qint64 memoryTotal = 0;
    MemoryPressureLevel memoryPressure = MemoryPressureLevel::normal;
    DiskUsage disk;
    bool batteryPresent = false;
    int batteryPercent = 0;
    bool batteryCharging = false;
    bool batteryOnAC = false;
    double netUp = 0;
    double netDown = 0;
    QString primaryInterface;
};

Snapshot fromStats(const SystemStats &stats);
HealthGrade grade(const Snapshot &snapshot);

// "Mac Health:"; the grade word follows it in the header.
QString headingLabel();
// The line under it: the machine's name as the system shows it, or "Mac" without one.
QString computerLabel(const QString &systemName);
QString gradeWord(HealthGrade grade);
QString pressureWord(MemoryPressureLevel level);

StatCard cpu(const Snapshot &snapshot);
StatCard memory(const Snapshot &snapshot);
StatCard disk(const Snapshot &snapshot);
// The battery, or the "Power" tile of a machine without one.
StatCard battery(const Snapshot &snapshot);
// CPU, Memory, Disk, Battery: the grid's order, row by row.
std::array<StatCard, 4> tiles(const Snapshot &snapshot);

NetworkLine network(const Snapshot &snapshot);

} // namespace HealthTiles
