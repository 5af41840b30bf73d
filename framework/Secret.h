// Passwords and keys are overwritten before their memory goes back to the allocator, where a
// later allocation, a core dump or a swapped-out page could show them. explicit_bzero is a write
// the compiler may not drop as dead.
#pragma once

#include <string.h>

#include <string>
#include <vector>

// An empty vector's data() may be null, which explicit_bzero does not take.
inline void wipe(std::string& secret) { explicit_bzero(secret.data(), secret.size()); }
inline void wipe(std::vector<unsigned char>& secret) {
    if (!secret.empty()) explicit_bzero(secret.data(), secret.size());
}

// Wipes a secret when the scope that holds it ends, however it ends.
template <typename Secret>
class WipedOnExit {
public:
    explicit WipedOnExit(Secret& secret) : secret_(secret) {}
    ~WipedOnExit() { wipe(secret_); }
    WipedOnExit(const WipedOnExit&) = delete;
    WipedOnExit& operator=(const WipedOnExit&) = delete;

private:
    Secret& secret_;
};
