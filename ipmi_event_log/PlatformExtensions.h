// The extensions a framework offered (IpmiPlatformExtensions.h), for the library's own use.
#pragma once

#include "IpmiPlatformExtensions.h"

namespace Tolmar {

// The offered extensions, or null when the framework offered none.
PlatformExtensions* offeredPlatformExtensions();

}  // namespace Tolmar
