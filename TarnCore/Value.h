#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace tarn {

/// A tree of plain data: what a property list, a JSON document or a coded record holds.
///
/// A dictionary keeps its entries in the order in which they were added, because some
/// records are written in a fixed order. Equality compares trees entry by entry.
/// Integers and doubles are different types, as they are in a property list.
class Value {
public:
    using Array = std::vector<Value>;
    using Entry = std::pair<std::string, Value>;
    using Dictionary = std::vector<Entry>;

    Value() = default;
    Value(bool value) : data_(value) {}
    Value(int value) : data_(std::int64_t{value}) {}
    Value(std::int64_t value) : data_(value) {}
    Value(double value) : data_(value) {}
    Value(const char *value) : data_(std::string(value)) {}
    Value(std::string value) : data_(std::move(value)) {}
    Value(Array value) : data_(std::move(value)) {}
    Value(Dictionary value) : data_(std::move(value)) {}

    /// A list of strings as an array.
    static Value strings(const std::vector<std::string> &list);

    bool isNull() const { return std::holds_alternative<std::monostate>(data_); }

    /// The content when it has exactly this type, else null. Owned by this value.
    const bool *boolean() const { return std::get_if<bool>(&data_); }
    const std::int64_t *integer() const { return std::get_if<std::int64_t>(&data_); }
    const double *real() const { return std::get_if<double>(&data_); }
    const std::string *string() const { return std::get_if<std::string>(&data_); }
    const Array *array() const { return std::get_if<Array>(&data_); }
    const Dictionary *dictionary() const { return std::get_if<Dictionary>(&data_); }

    /// The entry of a dictionary; null when this is no dictionary or has no such key.
    /// Where a key stands twice, the first entry counts.
    const Value *find(std::string_view key) const;

    /// The list under a key of a dictionary; none when there is no such entry or it holds anything but
    /// strings.
    std::optional<std::vector<std::string>> stringList(std::string_view key) const;

    /// Puts an entry into a dictionary in place of an earlier one with the same key.
    /// A value of another type becomes a dictionary first.
    void set(std::string_view key, Value value);

    friend bool operator==(const Value &, const Value &) = default;

private:
    std::variant<std::monostate, bool, std::int64_t, double, std::string, Array, Dictionary> data_;
};

} // namespace tarn
