#include "platform/LaunchAtLogin.h"

#import <Foundation/Foundation.h>
#import <ServiceManagement/ServiceManagement.h>

using namespace Qt::StringLiterals;

// SMAppService.mainAppService is the app itself as the user's login item. The availability
// checks keep the file building when the deployment target is older than the bundle's
// minimum (13.0), which is where the service first appeared.
namespace Platform::LaunchAtLogin {

// "Requires approval" is a registration the user has not allowed yet: not on.
bool enabled(const UserFolders &)
{
    if (@available(macOS 13.0, *)) {
        @autoreleasepool {
            return SMAppService.mainAppService.status == SMAppServiceStatusEnabled;
        }
    }
    return false;
}

std::optional<QString> set(const UserFolders &, bool on)
{
    if (@available(macOS 13.0, *)) {
        @autoreleasepool {
            SMAppService *service = SMAppService.mainAppService;
            NSError *error = nil;
            const BOOL done = on ? [service registerAndReturnError:&error]
                                 : [service unregisterAndReturnError:&error];
            if (done)
                return std::nullopt;
            if (error != nil)
                return QString::fromNSString(error.localizedDescription);
        }
    }
    return u"The login item could not be changed."_s;
}

// The service registration has no command line to quote.
QString execValue(const QString &program)
{
    return program;
}

} // namespace Platform::LaunchAtLogin
