#pragma once

#include <string_view>

/// Which textual addresses can carry traffic beyond their own link ("routable").
/// Pure; nothing is allocated.
namespace tarn::AddressClassifier {

/// False for 0/8, loopback, 169.254/16 and everything from 224.0.0.0 up. Private and
/// carrier-grade ranges count: a wired LAN with a private address is the normal case.
/// The reading is lenient: empty pieces and pieces that are no number are skipped.
bool isRoutableIPv4(std::string_view address);

/// True for global unicast (2000::/3) and unique local (fc00::/7) addresses. Only the
/// first group is examined; a zone suffix is allowed.
bool isRoutableIPv6(std::string_view address);

} // namespace tarn::AddressClassifier
