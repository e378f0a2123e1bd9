#include "core/outcomes/Restore.h"

using namespace Qt::StringLiterals;

namespace Restorer {

QString code(const Outcome &outcome)
{
    switch (outcome.kind) {
    case Outcome::Kind::restored:
        return u"restored"_s;
    case Outcome::Kind::gone:
        return u"gone"_s;
    case Outcome::Kind::destinationExists:
        return u"destinationExists"_s;
    case Outcome::Kind::refused:
        switch (outcome.refusal.value_or(Refusal::notInTrash)) {
        case Refusal::notInTrash:
            return u"notInTrash"_s;
        case Refusal::throughLink:
            return u"throughLink"_s;
        case Refusal::recordMismatch:
            return u"recordMismatch"_s;
        case Refusal::parentMissing:
            return u"parentMissing"_s;
        case Refusal::badOriginal:
            return u"badOriginal"_s;
        }
        break;
    case Outcome::Kind::failed:
        if (outcome.failure == Failure::permissionDenied)
            return u"permissionDenied"_s;
        if (outcome.failure == Failure::crossDevice)
            return u"crossDevice"_s;
        break;
    }
    return u"other"_s;
}

} // namespace Restorer
