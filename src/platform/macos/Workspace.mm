#include "platform/Workspace.h"

#import <AppKit/AppKit.h>

// AppKit documents both sharedWorkspace and runningApplications as safe from any thread,
// the list being returned atomically, so worker threads ask directly. The list changes
// only while the main run loop runs in a common mode, so a process whose main thread
// never spins its run loop may be handed a stale list.
QList<Platform::RunningApplication> Platform::runningApplications()
{
    QList<RunningApplication> running;
    @autoreleasepool {
        NSArray<NSRunningApplication *> *applications =
            [[NSWorkspace sharedWorkspace] runningApplications];
        running.reserve(qsizetype(applications.count));
        for (NSRunningApplication *application in applications) {
            RunningApplication entry;
            // nil without an Info.plist, or without a bundle at all.
            if (NSString *identifier = application.bundleIdentifier)
                entry.bundleIdentifier = QString::fromNSString(identifier);
            if (NSString *path = application.bundleURL.path)
                entry.bundlePath = QString::fromNSString(path);
            running.append(entry);
        }
    }
    return running;
}

// The Privacy & Security pane at its Full Disk Access list. NSWorkspace opens URLs from any
// thread.
void Platform::openFullDiskAccessSettings()
{
    @autoreleasepool {
        NSURL *url =
            [NSURL URLWithString:
                       @"x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles"];
        if (url != nil)
            [[NSWorkspace sharedWorkspace] openURL:url];
    }
}

// The App Store application's updates page.
void Platform::openAppStoreUpdates()
{
    @autoreleasepool {
        NSURL *url = [NSURL URLWithString:@"macappstore://showUpdatesPage"];
        if (url != nil)
            [[NSWorkspace sharedWorkspace] openURL:url];
    }
}

// Default options, no completion handler: a launch failure has nowhere to be shown. Qt 6.4
// still lets the deployment target go down to 10.14, before the configuration API; there,
// opening the bundle's URL launches it as a double click in the Finder would.
void Platform::openApplication(const QString &bundlePath)
{
    // fileURLWithPath: does not accept an empty path.
    if (bundlePath.isEmpty())
        return;
    @autoreleasepool {
        NSURL *url = [NSURL fileURLWithPath:bundlePath.toNSString()];
        NSWorkspace *workspace = [NSWorkspace sharedWorkspace];
        if (@available(macOS 10.15, *)) {
            [workspace openApplicationAtURL:url
                              configuration:[NSWorkspaceOpenConfiguration configuration]
                          completionHandler:nil];
        } else {
            [workspace openURL:url];
        }
    }
}

// Read from the bundle explicitly; a bare executable has no Info.plist and so no version.
std::optional<QString> Platform::shortVersion()
{
    @autoreleasepool {
        id value = [NSBundle.mainBundle objectForInfoDictionaryKey:@"CFBundleShortVersionString"];
        if ([value isKindOfClass:[NSString class]] && [(NSString *)value length] > 0)
            return QString::fromNSString((NSString *)value);
    }
    return std::nullopt;
}

// Finder opens a window on the item's folder with the item selected.
void Platform::revealInFileManager(const QString &path)
{
    if (path.isEmpty())
        return;
    @autoreleasepool {
        NSURL *url = [NSURL fileURLWithPath:path.toNSString()];
        [[NSWorkspace sharedWorkspace] activateFileViewerSelectingURLs:@[ url ]];
    }
}
