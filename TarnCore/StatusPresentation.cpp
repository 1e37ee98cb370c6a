#include "TarnCore/StatusPresentation.h"

#include <string_view>

namespace tarn {
namespace {

struct Row {
    std::string_view symbol;
    bool isWarning;
};

Row row(Status::Kind kind) {
    switch (kind) {
    case Status::Kind::wired:
    case Status::Kind::wiredPending:
        return {"cable.connector", false};
    case Status::Kind::wiredUnreachable:
        return {"exclamationmark.triangle", true};
    case Status::Kind::wifi:
        return {"antenna.radiowaves.left.and.right", false};
    case Status::Kind::offline:
        return {"antenna.radiowaves.left.and.right.slash", true};
    case Status::Kind::wifiOff:
        // The user chose this: nothing to warn of.
        return {"wifi.slash", false};
    case Status::Kind::paused:
        return {"pause.circle", true};
    case Status::Kind::disabled:
        break;
    }
    return {"shield.slash", true};
}

} // namespace

StatusPresentation::StatusPresentation(const Status &status)
    : symbolName(row(status.kind).symbol), isWarning(row(status.kind).isWarning) {
    const std::string prefix = "status." + std::string(Status::caseName(status.kind));
    titleKey = prefix + ".title";
    detailKey = prefix + ".detail";
    accessibilityKey = prefix + ".accessibility";
    if (Status::hasPayload(status.kind))
        detailArguments = {status.name, status.device};
}

std::string StatusPresentation::menuBarSymbol(const Status &status, [[maybe_unused]] bool wifiOn) {
    return StatusPresentation(status).symbolName;
}

} // namespace tarn
