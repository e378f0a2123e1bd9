#include "platform/ComputerName.h"

#import <Foundation/Foundation.h>
#import <SystemConfiguration/SystemConfiguration.h>

// The Computer Name of the Sharing settings, the one NSHost's localizedName also gives.
// Read from the configuration store: NSHost resolves the host's addresses first, which can
// wait on the network, and the panel asks on the main thread.
QString Platform::computerName(const QString &)
{
    @autoreleasepool {
        CFStringRef name = SCDynamicStoreCopyComputerName(nullptr, nullptr);
        if (name == nullptr)
            return {};
        return QString::fromNSString(CFBridgingRelease(name));
    }
}
