#pragma once

#include <string>

/// The documents that tell of the settings, each made from their table.
///
/// They do not depend on how the build is configured: where a default does, an example stands in its place.
/// Errors: std::logic_error when a setting has no texts or an example would not be accepted.
namespace tarn::documents {

enum class Language { english, german };

/// docs/configuration.md; `frame` is the page with @SETTINGS@ and @EINSTELLUNGEN@ where the tables go.
std::string configurationPage(std::string frame);
/// /etc/tarnlink/managed.json with every setting commented out.
std::string managedExample();
/// A preference manifest in the form of ProfileManifests, which has one language a file.
std::string preferenceManifest(Language language);
/// A configuration profile that forces a few settings.
std::string configurationProfile();

} // namespace tarn::documents
