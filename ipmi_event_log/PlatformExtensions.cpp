#include "PlatformExtensions.h"

#include <atomic>

namespace Tolmar {

namespace {

// Constant-initialised, so that an offer made by another library's static initialiser is never
// overwritten by this one's.
std::atomic<PlatformExtensions*> offered{nullptr};

}  // namespace

void SetPlatformExtensions(PlatformExtensions* extensions) { offered.store(extensions); }

PlatformExtensions* offeredPlatformExtensions() { return offered.load(); }

}  // namespace Tolmar
