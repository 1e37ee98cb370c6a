#include "Platform/Linux/BusProtocol.h"

#include "TarnCore/Text.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace tarn::BusProtocol {

using namespace TarnXPCProtocol;

const std::array<Method, std::variant_size_v<Call>> methods = {{
    {"Status", "", "report\0", Status()},
    {"Pause", "day", "seconds\0authorization\0result\0", Pause()},
    {"Resume", "", "result\0", Resume()},
    {"Diagnostics", "", "text\0", Diagnostics()},
    {"SetTetheringWhileWired", "b", "allow\0result\0", SetTetheringWhileWired()},
    {"SetTetheringDNSFix", "b", "enabled\0result\0", SetTetheringDNSFix()},
    {"InstallUpdate", "s", "pkgPath\0result\0", InstallUpdate()},
    {"InstallVerifiedUpdate", "says", "pkgPath\0manifest\0signature\0result\0", InstallVerifiedUpdate()},
    {"UpdateStatus", "", "result\0", UpdateStatus()},
}};

namespace {

/// Both of these keep the first error in `result`; what comes after one does not count.
struct Writer {
    sd_bus_message *message;
    int result = 0;

    void keep(int next) { result = std::min(result, next); }
    void number(double value) { keep(sd_bus_message_append(message, "d", value)); }
    void flag(bool value) { keep(sd_bus_message_append(message, "b", static_cast<int>(value))); }
    void text(const std::string &value) {
        // The bus ends the connection of whoever sends anything else.
        const bool canBeSent = text::isUTF8(value) && value.find('\0') == std::string::npos;
        keep(canBeSent ? sd_bus_message_append(message, "s", value.c_str()) : -EINVAL);
    }
    void bytes(const std::string &value) {
        keep(sd_bus_message_append_array(message, 'y', value.data(), value.size()));
    }
    void bytes(const std::optional<std::string> &value) { bytes(value.value_or("")); }
};

struct Reader {
    sd_bus_message *message;
    int result = 0;

    void keep(int next) { result = std::min(result, next); }
    void number(double &value) { keep(sd_bus_message_read(message, "d", &value)); }
    void flag(bool &value) {
        int read = 0;
        keep(sd_bus_message_read(message, "b", &read));
        value = read != 0;
    }
    void text(std::string &value) {
        const char *read = "";
        keep(sd_bus_message_read(message, "s", &read));
        value = read;
    }
    void bytes(std::string &value) {
        const void *read = nullptr;
        std::size_t size = 0;
        keep(sd_bus_message_read_array(message, 'y', &read, &size));
        value.assign(static_cast<const char *>(read), size);
    }
    void bytes(std::optional<std::string> &value) {
        bytes(value.emplace());
        if (value->empty())
            value.reset();
    }
};

/// The arguments of a call, constant or not, in the order of the signature.
template <class End> int transfer(End end, auto &call) {
    std::visit(
        [&](auto &asked) {
            if constexpr (requires { asked.seconds; }) {
                end.number(asked.seconds);
                end.bytes(asked.authorization);
            }
            if constexpr (requires { asked.allow; })
                end.flag(asked.allow);
            if constexpr (requires { asked.enabled; })
                end.flag(asked.enabled);
            if constexpr (requires { asked.pkgPath; })
                end.text(asked.pkgPath);
            if constexpr (requires { asked.manifest; }) {
                end.bytes(asked.manifest);
                end.text(asked.signature);
            }
        },
        call);
    return end.result;
}

} // namespace

std::string objectPath(const std::string &serviceName) {
    auto path = "/" + serviceName;
    std::ranges::replace(path, '.', '/');
    return path;
}

int append(sd_bus_message *message, const Call &call) {
    return transfer(Writer{message}, call);
}

std::optional<Call> read(sd_bus_message *message) {
    const std::string_view name = sd_bus_message_get_member(message);
    const auto method = std::ranges::find(methods, name, &Method::name);
    if (method == methods.end())
        return std::nullopt;
    auto call = method->call;
    if (transfer(Reader{message}, call) < 0)
        return std::nullopt;
    return call;
}

} // namespace tarn::BusProtocol
