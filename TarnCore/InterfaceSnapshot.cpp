#include "TarnCore/InterfaceSnapshot.h"

#include "TarnCore/AddressClassifier.h"

#include <algorithm>
#include <iterator>

namespace tarn {
namespace {

bool isUsableIPv4(const std::string &address) {
    return AddressClassifier::isRoutableIPv4(address);
}

// A deprecated or temporary address still carries traffic; one that duplicate address
// detection has not passed does not (RFC 4862, section 5.4).
bool isUsableIPv6(const IPv6Address &entry) {
    return !entry.isTentative() && !entry.isDuplicated() && AddressClassifier::isRoutableIPv6(entry.address);
}

template <class List, class Predicate> List filtered(const List &list, Predicate predicate) {
    List result;
    std::ranges::copy_if(list, std::back_inserter(result), predicate);
    return result;
}

template <class Element, class Predicate>
const Element *firstOf(const std::vector<Element> &list, Predicate predicate) {
    const auto found = std::ranges::find_if(list, predicate);
    return found == list.end() ? nullptr : &*found;
}

} // namespace

std::string_view rawValue(InterfaceKind kind) {
    switch (kind) {
    case InterfaceKind::wifi:
        return "wifi";
    case InterfaceKind::wired:
        return "wired";
    case InterfaceKind::other:
        break;
    }
    return "other";
}

std::optional<InterfaceKind> interfaceKind(std::string_view raw) {
    for (const auto kind : {InterfaceKind::wifi, InterfaceKind::wired, InterfaceKind::other})
        if (rawValue(kind) == raw)
            return kind;
    return std::nullopt;
}

std::vector<std::string> InterfaceSnapshot::routableIPv4() const {
    return filtered(ipv4, isUsableIPv4);
}

std::vector<IPv6Address> InterfaceSnapshot::routableIPv6() const {
    return filtered(ipv6, isUsableIPv6);
}

const std::string *InterfaceSnapshot::firstRoutableIPv4() const {
    return firstOf(ipv4, isUsableIPv4);
}

const IPv6Address *InterfaceSnapshot::firstRoutableIPv6() const {
    return firstOf(ipv6, isUsableIPv6);
}

bool InterfaceSnapshot::hasRoutableAddress() const {
    return linkActive && (firstRoutableIPv4() || firstRoutableIPv6());
}

} // namespace tarn
