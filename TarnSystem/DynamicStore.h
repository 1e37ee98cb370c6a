#pragma once

#include "TarnCore/Value.h"

#include <optional>
#include <string>
#include <vector>

namespace tarn {

/// A session with the store of the live network state: keys such as
/// "State:/Network/Interface/en0/Link" with dictionaries as values. It is closed on destruction.
///
/// A key list opens a reading: values copied after it belong, where the system can give that,
/// to the same moment. Values are property lists; what cannot be read is absent.
///
/// Thread: one at a time; calls block for as long as the system takes to answer.
class DynamicStore {
public:
    virtual ~DynamicStore() = default;

    /// The keys that match a pattern as a whole, in no particular order; none when the store
    /// cannot be read. A pattern is a regular expression of literal components, "[^/]+" and
    /// "(A|B)" between slashes.
    virtual std::optional<std::vector<std::string>> copyKeyList(const std::string &pattern) = 0;

    /// The value of one key; none when there is no such key.
    virtual std::optional<Value> copyValue(const std::string &key) = 0;

    /// Puts a value in place of an earlier one, until whoever keeps the key sets it again. Returns why
    /// the system did not take it, in its words for people; none when it did.
    ///
    /// On Linux only keys "State:/Network/Service/device:NAME/DNS" can be set, and of their values only
    /// "ServerAddresses" has an effect.
    virtual std::optional<std::string> setValue(const std::string &key, const Value &value) = 0;
};

} // namespace tarn
