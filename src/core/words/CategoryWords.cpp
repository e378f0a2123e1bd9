#include "core/words/CategoryWords.h"

#include "core/text/L10n.h"

QString title(CleanCategory category)
{
    switch (category) {
    case CleanCategory::userCache:
        return L10n::pick(QStringLiteral("App caches"), QStringLiteral("应用缓存"));
    case CleanCategory::logs:
        return L10n::pick(QStringLiteral("Logs & crash reports"), QStringLiteral("日志与崩溃报告"));
    case CleanCategory::ai:
        return L10n::pick(QStringLiteral("AI tools & models"),
                          QStringLiteral("AI 工具缓存 / 模型"));
    case CleanCategory::developer:
        return L10n::pick(QStringLiteral("Developer junk"), QStringLiteral("开发者垃圾"));
    case CleanCategory::leftovers:
        return L10n::pick(QStringLiteral("App leftovers"), QStringLiteral("卸载残留"));
    case CleanCategory::largeFiles:
        return L10n::pick(QStringLiteral("Large files"), QStringLiteral("大文件"));
    case CleanCategory::unusedApps:
        return L10n::pick(QStringLiteral("Apps not opened for 6 months"),
                          QStringLiteral("6 个月没打开过的应用"));
    }
    return {};
}

QString note(CleanCategory category)
{
    switch (category) {
    case CleanCategory::userCache:
        return L10n::pick(
            QStringLiteral("Apps rebuild caches as needed; some may open slightly slower the first "
                           "time. Moved to the Trash, not deleted."),
            QStringLiteral(
                "应用会自动重建缓存，个别应用第一次打开会稍慢。移到废纸篓，不直接删除。"));
    case CleanCategory::logs:
        return L10n::pick(
            QStringLiteral("Diagnostic logs and crash reports. Keep them only if someone is "
                           "debugging a problem. Moved to the Trash."),
            QStringLiteral("诊断日志和崩溃报告，只有正在排查问题时才需要保留。移到废纸篓。"));
    case CleanCategory::ai:
        return L10n::pick(
            QStringLiteral("Downloaded models and caches of AI tools; re-downloaded when the tool "
                           "is used again. Moved to the Trash."),
            QStringLiteral("AI 工具下载的模型和缓存，下次使用会自动重新下载。移到废纸篓。"));
    case CleanCategory::developer:
        return L10n::pick(
            QStringLiteral("Xcode build products and simulator caches. Moved to the Trash."),
            QStringLiteral("Xcode 编译产物和模拟器缓存。移到废纸篓。"));
    case CleanCategory::leftovers:
        return L10n::pick(
            QStringLiteral("Support files of apps that are no longer installed. Nothing is "
                           "pre-selected: check the names before removing. Moved to the Trash."),
            QStringLiteral("已卸载应用留下的支持文件。默认不勾选，删除前请看清名字。移到废纸篓。"));
    case CleanCategory::largeFiles:
        return L10n::pick(
            QStringLiteral("Files over 500 MB in your home folder (Library, photo libraries, disk "
                           "images and VMs excluded). Nothing is pre-selected. Moved to the "
                           "Trash."),
            QStringLiteral("家目录里超过 500 MB 的文件（不含资源库、照片图库、磁盘映像和虚拟机）。"
                           "默认不勾选。移到废纸篓。"));
    case CleanCategory::unusedApps:
        return L10n::pick(
            QStringLiteral("Applications in /Applications that have not been opened for 180 days "
                           "(by Spotlight's last-used date). Nothing is pre-selected; the app is "
                           "moved to the Trash and can be put back."),
            QStringLiteral("「应用程序」里 180 天没打开过的应用（按系统记录的最后使用日期）。"
                           "默认不勾选；移到废纸篓，可以放回。"));
    }
    return {};
}

QString title(ToolPage page)
{
    switch (page) {
    case ToolPage::overview:
        return L10n::pick(QStringLiteral("Overview"), QStringLiteral("总览"));
    case ToolPage::cleanup:
        return L10n::pick(QStringLiteral("Clean Up"), QStringLiteral("清理"));
    case ToolPage::leftovers:
        return L10n::pick(QStringLiteral("App Leftovers"), QStringLiteral("卸载残留"));
    case ToolPage::largeFiles:
        return L10n::pick(QStringLiteral("Large Files"), QStringLiteral("大文件"));
    case ToolPage::unusedApps:
        return L10n::pick(QStringLiteral("Unused Apps"), QStringLiteral("不用的应用"));
    case ToolPage::screen:
        return L10n::pick(QStringLiteral("Screen Cleaning"), QStringLiteral("清屏模式"));
    case ToolPage::updates:
        break;
    }
    return L10n::pick(QStringLiteral("App Updater"), QStringLiteral("应用更新"));
}
