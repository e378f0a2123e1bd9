#pragma once

#include <QString>

namespace Platform {

// The name the system shows people for this machine ("Anna's MacBook Pro"), empty when it
// has none. Linux: PRETTY_HOSTNAME from `machineInfo` (systemd's machine-info file), else
// the host name; macOS asks the system and ignores `machineInfo`.
QString computerName(const QString &machineInfo = QStringLiteral("/etc/machine-info"));

} // namespace Platform
