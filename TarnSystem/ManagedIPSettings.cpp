#include "TarnSystem/ManagedIPSettings.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

namespace tarn {
namespace {

using Address = ManagedIPSettings::Address;
using Words = std::pair<std::string_view, std::string_view>;

// NetworkManager's word and the property list's. Of several the first is the way back.
constexpr std::array<Words, 5> ipv4Methods = {{{"auto", "DHCP"},
                                               {"manual", "Manual"},
                                               {"shared", "Manual"},
                                               {"disabled", "Off"},
                                               {"link-local", "LinkLocal"}}};
constexpr std::array<Words, 7> ipv6Methods = {{{"auto", "Automatic"},
                                               {"dhcp", "Automatic"},
                                               {"ignore", "Automatic"},
                                               {"manual", "Manual"},
                                               {"shared", "Manual"},
                                               {"disabled", "Off"},
                                               {"link-local", "LinkLocal"}}};

std::string_view translated(std::string_view word, IPProtocol protocol, std::string_view Words::*from,
                            std::string_view Words::*to) {
    const auto find = [&](const auto &table) {
        const auto found = std::ranges::find(table, word, from);
        return found == table.end() ? std::string_view() : (*found).*to;
    };
    return protocol == IPProtocol::ipv6 ? find(ipv6Methods) : find(ipv4Methods);
}

bool isUsable(const Address &address, IPProtocol protocol) {
    const bool isIPv6 = protocol == IPProtocol::ipv6;
    return address.address.isIPv6 == isIPv6 && address.prefixLength >= 1 &&
           address.prefixLength <= (isIPv6 ? 128 : 32);
}

std::string subnetMask(unsigned prefixLength) {
    IPAddress mask;
    for (unsigned bit = 0; bit < prefixLength; ++bit)
        mask.bytes[bit / 8] |= static_cast<std::uint8_t>(0x80 >> bit % 8);
    return mask.text();
}

std::optional<unsigned> prefixLength(const Value &value, IPProtocol protocol) {
    if (protocol == IPProtocol::ipv6) {
        const auto *length = value.integer();
        return length && *length >= 1 && *length <= 128 ? std::optional(static_cast<unsigned>(*length))
                                                        : std::nullopt;
    }
    const auto *text = value.string();
    for (unsigned length = 1; text && length <= 32; ++length)
        if (*text == subnetMask(length))
            return length;
    return std::nullopt;
}

std::optional<IPAddress> address(const Value &value, IPProtocol protocol) {
    const auto *text = value.string();
    const auto parsed = text ? IPAddress::parse(*text) : std::nullopt;
    return parsed && parsed->isIPv6 == (protocol == IPProtocol::ipv6) ? parsed : std::nullopt;
}

const char *lengthsKey(IPProtocol protocol) {
    return protocol == IPProtocol::ipv6 ? "PrefixLength" : "SubnetMasks";
}

} // namespace

std::optional<ProtocolConfiguration> configurationFromManaged(const ManagedIPSettings &settings,
                                                              IPProtocol protocol) {
    const auto method = translated(settings.method, protocol, &Words::first, &Words::second);
    if (method.empty())
        return std::nullopt;
    Value entries = Value::Dictionary{{"ConfigMethod", std::string(method)}};
    if (method == "Manual" && !settings.addresses.empty()) {
        Value::Array addresses;
        Value::Array lengths;
        for (const auto &entry : settings.addresses) {
            if (!isUsable(entry, protocol))
                return std::nullopt;
            addresses.emplace_back(entry.address.text());
            lengths.push_back(protocol == IPProtocol::ipv6
                                  ? Value(static_cast<std::int64_t>(entry.prefixLength))
                                  : Value(subnetMask(entry.prefixLength)));
        }
        entries.set("Addresses", std::move(addresses));
        entries.set(lengthsKey(protocol), std::move(lengths));
        if (settings.gateway && settings.gateway->isIPv6 != (protocol == IPProtocol::ipv6))
            return std::nullopt;
        if (settings.gateway)
            entries.set("Router", settings.gateway->text());
    }
    return ProtocolConfiguration{std::move(entries), true};
}

std::optional<ManagedIPSettings> managedFromConfiguration(const ProtocolConfiguration &configuration,
                                                          IPProtocol protocol) {
    if (!configuration.enabled)
        return ManagedIPSettings{"disabled", {}, {}};
    const auto *word = configuration.entries ? configuration.entries->find("ConfigMethod") : nullptr;
    if (!word || !word->string())
        return std::nullopt;
    ManagedIPSettings settings;
    settings.method = translated(*word->string(), protocol, &Words::second, &Words::first);
    if (settings.method.empty())
        return std::nullopt;
    const auto *addresses = configuration.entries->find("Addresses");
    if (settings.method != "manual" || !addresses)
        return settings;

    const auto *lengths = configuration.entries->find(lengthsKey(protocol));
    if (!addresses->array() || !lengths || !lengths->array() ||
        addresses->array()->size() != lengths->array()->size())
        return std::nullopt;
    for (std::size_t i = 0; i < addresses->array()->size(); ++i) {
        const auto parsed = address((*addresses->array())[i], protocol);
        const auto length = prefixLength((*lengths->array())[i], protocol);
        if (!parsed || !length)
            return std::nullopt;
        settings.addresses.push_back({*parsed, *length});
    }
    if (const auto *router = configuration.entries->find("Router")) {
        settings.gateway = address(*router, protocol);
        if (!settings.gateway)
            return std::nullopt;
    }
    return settings;
}

bool ManagedIPChange::keeps(std::string_view entry, bool hasDNSData) const {
    // An old form counts more than the new one beside it, but holds less: routes lose their
    // attributes, name servers their names.
    if (entry == "route-metric" || entry == "addresses" || entry == "routes" ||
        (entry == "dns" && hasDNSData))
        return false;
    if (entry == "method")
        return !method;
    if (entry == "address-data" || entry == "gateway")
        return !hasNoAddresses && !addresses;
    return !hasNoAddresses ||
           (entry != "dns" && entry != "dns-data" && entry != "dns-search" && entry != "route-data");
}

std::optional<ManagedIPChange> managedChange(const ProtocolConfiguration &wanted, IPProtocol protocol,
                                             const ManagedIPSettings *profile) {
    const auto settings = managedFromConfiguration(wanted, protocol);
    if (!settings)
        return std::nullopt;
    ManagedIPChange change;
    // The profile may say it in words of its own, such as "shared", that a configuration does not have.
    const auto configured = profile ? configurationFromManaged(*profile, protocol) : std::nullopt;
    if (configured && managedFromConfiguration(*configured, protocol) == settings) {
        change.isFromProfile = true;
        return change;
    }
    change.method = settings->method;
    change.hasNoAddresses = settings->method == "disabled" || settings->method == "link-local";
    change.isFromProfile = profile && !change.hasNoAddresses;
    if (settings->method == "manual") {
        if (settings->addresses.empty())
            return std::nullopt;
        change.addresses = settings->addresses;
        change.gateway = settings->gateway;
    }
    return change;
}

} // namespace tarn
