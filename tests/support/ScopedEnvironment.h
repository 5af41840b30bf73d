// An environment variable set for the lifetime of an object, for tests of the defaults a process
// takes from its environment. Tests only: the product never writes the environment.
#pragma once

#include <cstdlib>
#include <string>

namespace bmcsim {

// Sets an environment variable for the lifetime of the object.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value) : name_(name) {
        if (const char* old = std::getenv(name)) old_ = old, hadOld_ = true;
        setenv(name, value, 1);
    }
    ~ScopedEnvironment() {
        if (hadOld_) {
            setenv(name_, old_.c_str(), 1);
        } else {
            unsetenv(name_);
        }
    }

private:
    const char* name_;
    std::string old_;
    bool hadOld_ = false;
};

}  // namespace bmcsim
