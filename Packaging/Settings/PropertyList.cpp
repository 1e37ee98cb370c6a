#include "PropertyList.h"

#include "TarnCore/Text.h"

#include <array>
#include <openssl/evp.h>
#include <stdexcept>

namespace tarn::propertylist {
namespace {

std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text)
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        default:
            result += c;
        }
    return result;
}

void write(std::string &out, const Value &value, std::size_t depth, bool isDate = false) {
    const std::string indent(depth * 4, ' ');
    const auto element = [&](std::string_view name, std::string_view content) {
        out.append(indent).append("<").append(name).append(">").append(escaped(content));
        out.append("</").append(name).append(">\n");
    };
    if (const bool *flag = value.boolean()) {
        out += indent + (*flag ? "<true/>\n" : "<false/>\n");
    } else if (const auto *integer = value.integer()) {
        element("integer", std::to_string(*integer));
    } else if (const double *real = value.real()) {
        element("real", text::fromDouble(*real));
    } else if (const auto *string = value.string()) {
        element(isDate ? "date" : "string", *string);
    } else if (const auto *array = value.array()) {
        out += indent + "<array>\n";
        for (const auto &entry : *array)
            write(out, entry, depth + 1);
        out += indent + "</array>\n";
    } else if (const auto *dictionary = value.dictionary()) {
        out += indent + "<dict>\n";
        for (const auto &[key, entry] : *dictionary) {
            if (entry.isNull())
                continue;
            out += indent + "    <key>" + escaped(key) + "</key>\n";
            write(out, entry, depth + 1, key.ends_with("_modified"));
        }
        out += indent + "</dict>\n";
    }
}

} // namespace

std::string serialize(const Value &root) {
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                      "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                      "<plist version=\"1.0\">\n";
    write(out, root, 0);
    return out + "</plist>\n";
}

std::string uuid(std::string_view domain) {
    // The name space of domain names (RFC 9562, section 6.6).
    static constexpr std::array<unsigned char, 16> space = {0x6b, 0xa7, 0xb8, 0x10, 0x9d, 0xad, 0x11, 0xd1,
                                                            0x80, 0xb4, 0x00, 0xc0, 0x4f, 0xd4, 0x30, 0xc8};
    std::string input(space.begin(), space.end());
    input += domain;
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    if (EVP_Digest(input.data(), input.size(), digest.data(), nullptr, EVP_sha1(), nullptr) != 1)
        throw std::runtime_error("SHA-1 is not to be had");
    digest[6] = static_cast<unsigned char>((digest[6] & 0x0f) | 0x50);
    digest[8] = static_cast<unsigned char>((digest[8] & 0x3f) | 0x80);
    static constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    for (std::size_t i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            result += '-';
        result += digits[digest[i] >> 4];
        result += digits[digest[i] & 0x0f];
    }
    return result;
}

} // namespace tarn::propertylist
