#pragma once

#include "Platform/Platform.h"
#include "TarnSystem/Updates/HTTPClient.h"

#include <memory>

namespace tarn {

/// The operating system's HTTPS. A library of its own, because a program that does not fetch anything is not
/// to link what that takes. The platform must outlive it.
std::unique_ptr<HTTPClient> makeHTTPClient(Platform &platform);

} // namespace tarn
