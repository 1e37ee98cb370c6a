#include "TarnSystem/ProcessIdentity.h"

namespace tarn {
namespace {

constexpr std::string_view mark = "TarnClm1";
constexpr std::size_t length = 32;

template <class Number> void append(std::string &bytes, Number number) {
    for (std::size_t i = 0; i < sizeof number; ++i)
        bytes.push_back(static_cast<char>(static_cast<std::uint64_t>(number) >> (8 * i)));
}

template <class Number> Number take(std::string_view &bytes) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i)
        number |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
    bytes.remove_prefix(sizeof(Number));
    return static_cast<Number>(number);
}

} // namespace

std::string ProcessIdentity::externalForm() const {
    std::string bytes(mark);
    append(bytes, pid);
    append(bytes, uid);
    append(bytes, startTime);
    bytes.resize(length, '\0');
    return bytes;
}

std::optional<ProcessIdentity> ProcessIdentity::fromExternalForm(std::string_view bytes) {
    if (bytes.size() != length || !bytes.starts_with(mark))
        return std::nullopt;
    auto rest = bytes.substr(mark.size());
    ProcessIdentity identity;
    identity.pid = take<std::int32_t>(rest);
    identity.uid = take<std::uint32_t>(rest);
    identity.startTime = take<std::uint64_t>(rest);
    if (identity.pid <= 0 || identity.externalForm() != bytes)
        return std::nullopt;
    return identity;
}

} // namespace tarn
