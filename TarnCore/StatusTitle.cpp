#include "TarnCore/StatusTitle.h"

namespace tarn {

std::string statusTitle(const Status &status) {
    const auto path = status.device + " (" + status.name + ")";
    switch (status.kind) {
    case Status::Kind::wired:
        return "Wired: " + path;
    case Status::Kind::wiredPending:
        return "Verifying: " + path;
    case Status::Kind::wiredUnreachable:
        return "Unreachable: " + path + ", Wi-Fi on";
    case Status::Kind::wifi:
        return "Wi-Fi";
    case Status::Kind::offline:
        return "Offline";
    case Status::Kind::wifiOff:
        return "Wi-Fi off (user)";
    case Status::Kind::disabled:
        return "Disabled";
    case Status::Kind::paused:
        return "Paused";
    }
    return {};
}

} // namespace tarn
