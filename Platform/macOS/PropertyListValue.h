#pragma once

#include "Platform/macOS/CFRef.h"
#include "TarnCore/Value.h"

namespace tarn {

/// The tree of a property list. Null stands for what a Value cannot hold: dates, data, numbers
/// beyond 64 bits, and dictionaries with a key that is no string. Entries are sorted by key.
Value valueFromPropertyList(CFPropertyListRef propertyList);

/// A property list; null when the tree holds a null or text that is not UTF-8, for which
/// property lists have no form.
CFRef<CFPropertyListRef> propertyListFromValue(const Value &value);

} // namespace tarn
