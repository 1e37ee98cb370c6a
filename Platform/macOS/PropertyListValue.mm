#include "Platform/macOS/PropertyListValue.h"

#include "Platform/macOS/CFText.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tarn {
namespace {

Value fromNumber(CFNumberRef number) {
    if (CFNumberIsFloatType(number)) {
        double real = 0;
        CFNumberGetValue(number, kCFNumberDoubleType, &real);
        return real;
    }
    std::int64_t integer = 0;
    if (!CFNumberGetValue(number, kCFNumberSInt64Type, &integer))
        return {};
    return integer;
}

Value fromArray(CFArrayRef array) {
    const CFIndex count = CFArrayGetCount(array);
    Value::Array values;
    values.reserve(static_cast<std::size_t>(count));
    for (CFIndex i = 0; i < count; ++i)
        values.push_back(valueFromPropertyList(CFArrayGetValueAtIndex(array, i)));
    return values;
}

Value fromDictionary(CFDictionaryRef dictionary) {
    const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
    std::vector<const void *> keys(count);
    std::vector<const void *> objects(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), objects.data());
    Value::Dictionary entries;
    entries.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        auto key = text(keys[i]);
        if (!key)
            return {};
        entries.emplace_back(*std::move(key), valueFromPropertyList(objects[i]));
    }
    // Equal dictionaries may list their entries in different orders; equal values may not.
    std::sort(entries.begin(), entries.end(),
              [](const Value::Entry &a, const Value::Entry &b) { return a.first < b.first; });
    return entries;
}

CFRef<CFPropertyListRef> toArray(const Value::Array &values) {
    auto array =
        CFRef<CFMutableArrayRef>::adopt(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    for (const Value &value : values) {
        const auto element = propertyListFromValue(value);
        if (!element)
            return {};
        CFArrayAppendValue(array.get(), element.get());
    }
    return array;
}

CFRef<CFPropertyListRef> toDictionary(const Value::Dictionary &entries) {
    auto dictionary = CFRef<CFMutableDictionaryRef>::adopt(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    for (const auto &[name, value] : entries) {
        const auto key = makeCFString(name);
        const auto object = propertyListFromValue(value);
        if (!key || !object)
            return {};
        // Adding keeps the first of two entries with one key.
        CFDictionaryAddValue(dictionary.get(), key.get(), object.get());
    }
    return dictionary;
}

} // namespace

Value valueFromPropertyList(CFPropertyListRef propertyList) {
    if (!propertyList)
        return {};
    const CFTypeID type = CFGetTypeID(propertyList);
    if (type == CFBooleanGetTypeID())
        return CFBooleanGetValue(static_cast<CFBooleanRef>(propertyList)) != 0;
    if (type == CFNumberGetTypeID())
        return fromNumber(static_cast<CFNumberRef>(propertyList));
    if (type == CFStringGetTypeID())
        return text(propertyList).value_or(std::string());
    if (type == CFArrayGetTypeID())
        return fromArray(static_cast<CFArrayRef>(propertyList));
    if (type == CFDictionaryGetTypeID())
        return fromDictionary(static_cast<CFDictionaryRef>(propertyList));
    return {};
}

CFRef<CFPropertyListRef> propertyListFromValue(const Value &value) {
    if (const bool *boolean = value.boolean())
        return CFRef<CFBooleanRef>::retain(*boolean ? kCFBooleanTrue : kCFBooleanFalse);
    if (const std::int64_t *integer = value.integer())
        return CFRef<CFNumberRef>::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, integer));
    if (const double *real = value.real())
        return CFRef<CFNumberRef>::adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, real));
    if (const std::string *string = value.string())
        return makeCFString(*string);
    if (const Value::Array *array = value.array())
        return toArray(*array);
    if (const Value::Dictionary *dictionary = value.dictionary())
        return toDictionary(*dictionary);
    return {};
}

} // namespace tarn
