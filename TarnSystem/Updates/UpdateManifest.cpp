#include "TarnSystem/Updates/UpdateManifest.h"

#include "TarnCore/Status.h"
#include "TarnSystem/Json.h"

#include <variant>

namespace tarn {
namespace {

using Kind = DecodingError::Kind;

/// One object, read key by key.
class Reader {
public:
    explicit Reader(const Value &object) : object_(object) {}

    void read(const char *key, auto &field) const {
        const auto *value = object_.find(key);
        if (!value || value->isNull())
            throw DecodingError(Kind::keyNotFound, std::string(key) + ": missing");
        set(key, *value, field);
    }
    template <class Field> void read(const char *key, std::optional<Field> &field) const {
        if (const auto *value = object_.find(key); value && !value->isNull())
            set(key, *value, field.emplace());
    }

private:
    static void set(const char *key, const Value &value, std::string &field) {
        field = *content(key, value.string(), ": not a string");
    }
    static void set(const char *key, const Value &value, std::int64_t &field) {
        field = *content(key, value.integer(), ": not an integer of 64 bits");
    }
    template <class Content>
    static const Content *content(const char *key, const Content *of, const char *problem) {
        if (!of)
            throw DecodingError(Kind::typeMismatch, std::string(key) + problem);
        return of;
    }

    const Value &object_;
};

} // namespace

UpdateManifest UpdateManifest::decode(std::string_view json) {
    const auto document = json::parse(json);
    if (const auto *error = std::get_if<json::SyntaxError>(&document))
        throw DecodingError(Kind::dataCorrupted, "line " + std::to_string(error->line) + ", column " +
                                                     std::to_string(error->column) + ": " + error->message);
    const auto &object = std::get<Value>(document);
    if (!object.dictionary())
        throw DecodingError(Kind::typeMismatch, "not an object");
    const Reader reader(object);
    UpdateManifest manifest;
    reader.read("version", manifest.version);
    reader.read("build", manifest.build);
    reader.read("minOS", manifest.minOS);
    reader.read("url", manifest.url);
    reader.read("sha256", manifest.sha256);
    reader.read("size", manifest.size);
    reader.read("published", manifest.published);
    reader.read("notes", manifest.notes);
    return manifest;
}

} // namespace tarn
