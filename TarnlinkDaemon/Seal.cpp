#include "TarnlinkDaemon/Seal.h"

#include "TarnCore/Status.h"
#include "TarnSystem/Json.h"

#include <array>
#include <cstdint>
#include <variant>

namespace tarn {
namespace {

constexpr std::string_view recordKey = "record";
constexpr std::string_view sumKey = "fnv1a64";

/// FNV-1a with 64 bits, as 16 hexadecimal digits.
std::string sumOf(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char byte : text) {
        hash ^= static_cast<unsigned char>(byte);
        hash *= 0x100000001b3;
    }
    std::string digits(16, '0');
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit, hash >>= 4)
        *digit = "0123456789abcdef"[hash & 15];
    return digits;
}

} // namespace

std::string seal(const Value &record) {
    Value sealed = Value::Dictionary{{std::string(recordKey), record},
                                     {std::string(sumKey), sumOf(json::serialize(record))}};
    return json::serialize(sealed) + "\n";
}

Value unseal(std::string_view text) {
    const auto document = json::parse(text);
    if (const auto *error = std::get_if<json::SyntaxError>(&document))
        throw DecodingError(DecodingError::Kind::dataCorrupted,
                            "line " + std::to_string(error->line) + ", column " +
                                std::to_string(error->column) + ": " + error->message);
    const auto &sealed = std::get<Value>(document);
    const auto *record = sealed.find(recordKey);
    const auto *sum = sealed.find(sumKey);
    if (!record || !sum || !sum->string())
        throw DecodingError(DecodingError::Kind::keyNotFound, "there is no record with a checksum");
    if (*sum->string() != sumOf(json::serialize(*record)))
        throw DecodingError(DecodingError::Kind::dataCorrupted, "the checksum does not fit");
    return *record;
}

} // namespace tarn
