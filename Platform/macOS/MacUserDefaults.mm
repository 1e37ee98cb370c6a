#include "Platform/macOS/MacUserDefaults.h"

#include "Platform/macOS/FoundationText.h"
#include "Platform/macOS/PropertyListValue.h"
#include "TarnXPC/TarnXPC.h"

#include <chrono>
#include <cmath>

namespace tarn {
namespace {

NSUserDefaults *_Nonnull openDefaults() {
    // That of the application's bundle, as of its signature.
    NSString *domain = makeNSString(TarnXPC::clientIdentifier);
    // In the application itself it is no name for a suite, and its own defaults are the standard ones.
    NSString *own = NSBundle.mainBundle.bundleIdentifier;
    NSUserDefaults *suite = [own isEqual:domain] ? nil : [[NSUserDefaults alloc] initWithSuiteName:domain];
    return suite ? suite : NSUserDefaults.standardUserDefaults;
}

} // namespace

MacUserDefaults::MacUserDefaults(Log &log) : log_(log), defaults_(openDefaults()) {}

std::optional<bool> MacUserDefaults::boolean(const std::string &key) {
    const auto value = valueFromPropertyList((__bridge CFPropertyListRef)object(key));
    return value.boolean() ? std::optional(*value.boolean()) : std::nullopt;
}

std::optional<std::int64_t> MacUserDefaults::integer(const std::string &key) {
    const auto value = valueFromPropertyList((__bridge CFPropertyListRef)object(key));
    return value.integer() ? std::optional(*value.integer()) : std::nullopt;
}

std::optional<std::string> MacUserDefaults::string(const std::string &key) {
    return text((__bridge CFTypeRef)object(key));
}

std::optional<Date> MacUserDefaults::date(const std::string &key) {
    id found = object(key);
    if (![found isKindOfClass:[NSDate class]])
        return std::nullopt;
    const double seconds = std::floor([static_cast<NSDate *>(found) timeIntervalSince1970]);
    // The system's dates go further than ours.
    constexpr std::chrono::duration<double> first = Date::min().time_since_epoch();
    constexpr std::chrono::duration<double> last = Date::max().time_since_epoch();
    if (!(seconds > first.count() && seconds < last.count()))
        return std::nullopt;
    return Date(std::chrono::seconds(static_cast<std::int64_t>(seconds)));
}

std::optional<std::string> MacUserDefaults::data(const std::string &key) {
    id found = object(key);
    if (![found isKindOfClass:[NSData class]])
        return std::nullopt;
    return bytesOf(static_cast<NSData *>(found));
}

void MacUserDefaults::setBoolean(const std::string &key, bool value) {
    store(key, [NSNumber numberWithBool:value]);
}

void MacUserDefaults::setInteger(const std::string &key, std::int64_t value) {
    store(key, [NSNumber numberWithLongLong:value]);
}

void MacUserDefaults::setString(const std::string &key, const std::string &value) {
    store(key, makeNSString(value));
}

void MacUserDefaults::setDate(const std::string &key, Date value) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(value.time_since_epoch());
    store(key, [NSDate dateWithTimeIntervalSince1970:static_cast<double>(seconds.count())]);
}

void MacUserDefaults::setData(const std::string &key, const std::string &value) {
    store(key, makeNSData(value));
}

void MacUserDefaults::remove(const std::string &key) {
    NSString *name = makeNSString(key);
    if (name)
        [defaults_ removeObjectForKey:name];
}

id _Nullable MacUserDefaults::object(const std::string &key) const {
    NSString *name = makeNSString(key);
    return name ? [defaults_ objectForKey:name] : nil;
}

void MacUserDefaults::store(const std::string &key, id _Nullable object) {
    NSString *name = makeNSString(key);
    if (name && object)
        [defaults_ setObject:object forKey:name];
    else
        log_.write(Log::Level::error, "config", "user default " + key + " is no UTF-8 and was not stored");
}

} // namespace tarn
