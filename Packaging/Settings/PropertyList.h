#pragma once

#include "TarnCore/Value.h"

#include <string>
#include <string_view>

/// Property lists as text, and what profiles need beside them.
namespace tarn::propertylist {

/// A document of the form of PropertyList-1.0.dtd. Text under a key that ends in "_modified" is a date. A
/// null is left out.
std::string serialize(const Value &root);

/// The name-based UUID of a domain name (RFC 9562, version 5), in capitals: the same name always has the
/// same.
std::string uuid(std::string_view domain);

} // namespace tarn::propertylist
