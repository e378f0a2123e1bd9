#pragma once

#include "core/system/System.h"

// The machine itself, through the platform layer.
class RealSystem final : public System
{
public:
    using System::System;

    void moveToTrash(const QList<Platform::TrashRequest> &requests, Platform::TrashBatch &batch,
                     const Platform::TrashBatch::Moved &moved) const override;
    Platform::TrashEmptying
    emptyTrash(const std::optional<Platform::TrashContents> &confirmed) const override;
    QString trashItemsFolder() const override;
    Platform::RestoreFailure checkRestore(const QString &trashedPath, const QString &original,
                                          const QString &anchor, bool createFolders) const override;
    void restoreFromTrash(const QList<Platform::RestoreRequest> &requests,
                          const Platform::Restored &restored) const override;
    DiskUsage volumeUsage(const QString &path) const override;
    QList<Platform::RunningApplication> runningApplications() const override;
    std::optional<QString> runTool(const QString &tool, const QStringList &arguments,
                                   double timeoutSeconds) const override;
    std::optional<QDateTime> lastUsedDate(const QString &bundlePath) const override;
    QDateTime now() const override;
    bool loginItemEnabled() const override;
    std::optional<QString> setLoginItem(bool on) const override;
    void openFullDiskAccessSettings() const override;
    void openApplication(const QString &bundlePath) const override;
    void reveal(const QString &path) const override;
    std::optional<QString> version() const override;
    QString computerName() const override;
};
