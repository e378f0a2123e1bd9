#pragma once

#include <QString>
#include <optional>

// The kernel's memory pressure levels, with its own numbers as raw values.
enum class MemoryPressureLevel { normal = 1, warning = 2, critical = 4 };

// The panel's overall grade, in order of severity.
enum class HealthGrade { good, fair, poor };

inline int rawValue(MemoryPressureLevel level)
{
    return int(level);
}

// 1, 2 and 4 only; the kernel's 0, 3 or anything above 4 is no level.
inline std::optional<MemoryPressureLevel> memoryPressureLevelFromRaw(int raw)
{
    switch (raw) {
    case 1:
        return MemoryPressureLevel::normal;
    case 2:
        return MemoryPressureLevel::warning;
    case 4:
        return MemoryPressureLevel::critical;
    default:
        return std::nullopt;
    }
}

// Case names, for scripts (quorvel-cli health --json); never shown to people.
inline QString caseName(MemoryPressureLevel level)
{
    switch (level) {
    case MemoryPressureLevel::normal:
        break;
    case MemoryPressureLevel::warning:
        return QStringLiteral("warning");
    case MemoryPressureLevel::critical:
        return QStringLiteral("critical");
    }
    return QStringLiteral("normal");
}

inline QString caseName(HealthGrade grade)
{
    switch (grade) {
    case HealthGrade::good:
        break;
    case HealthGrade::fair:
        return QStringLiteral("fair");
    case HealthGrade::poor:
        return QStringLiteral("poor");
    }
    return QStringLiteral("good");
}
