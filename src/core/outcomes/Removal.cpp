#include "core/outcomes/Removal.h"

namespace Cleaner {

QString code(const Outcome &outcome)
{
    switch (outcome.kind) {
    case Outcome::Kind::moved:
        return QStringLiteral("moved");
    case Outcome::Kind::refused:
        return outcome.refusal ? SafetyGuard::rawValue(*outcome.refusal) : QStringLiteral("other");
    case Outcome::Kind::failed:
        break;
    }
    switch (outcome.failure) {
    case Failure::missing:
        return QStringLiteral("missing");
    case Failure::permissionDenied:
        return QStringLiteral("permissionDenied");
    case Failure::noTrash:
        return QStringLiteral("noTrash");
    case Failure::crossDevice:
        return QStringLiteral("crossDevice");
    case Failure::nameTooLong:
        return QStringLiteral("nameTooLong");
    case Failure::other:
        break;
    }
    return QStringLiteral("other");
}

} // namespace Cleaner
