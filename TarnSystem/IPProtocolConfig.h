#pragma once

#include "TarnCore/Value.h"

#include <optional>
#include <string>
#include <string_view>

/// How one protocol of a network service is taken off its interface and put back. A configuration is
/// a dictionary of the system's property lists (SystemConfiguration, SCSchemaDefinitions); what is no
/// dictionary counts as an empty one.
///
/// Pure.
namespace tarn::IPProtocolConfig {

/// kSCPropNetIPv4ConfigMethod, for both protocols.
inline constexpr std::string_view configMethodKey = "ConfigMethod";
/// kSCResvInactive: the entry that takes a configuration out of use without losing it.
inline constexpr std::string_view inactiveKey = "__INACTIVE__";

/// Whether the configuration is out of use: by its method or by the marker.
bool isOff(const Value &config);

/// The method that leaves the protocol without a routable address.
std::string addressLessMethod(bool isIPv4);

/// Whether the protocol gets no routable address; `enabled` is that of the protocol.
bool isAddressLess(const Value &config, bool enabled, bool isIPv4);

/// What to write when the protocol comes back: the saved configuration made active, with the default
/// method where it had none or was off; that method alone when nothing was saved.
Value restored(const std::optional<Value> &saved, bool isIPv4);

} // namespace tarn::IPProtocolConfig
