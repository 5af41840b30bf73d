// Tests of a configuration file's reading: the file written in a scratch directory with the text
// and mode a test gives, then read with `Read`.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "ScratchDirectory.h"
#include "base/YamlFile.h"

template <typename Config, Config (*Read)(const std::string&)>
class ConfigFileTest : public ::testing::Test {
protected:
    explicit ConfigFileTest(std::string name) : name_(std::move(name)) {}

    Config load(const std::string& text, mode_t mode = 0600) {
        scratch.write(name_, text);
        ::chmod(path().c_str(), mode);
        return Read(path());
    }

    // What reading `text` says is wrong with it; "no error" when nothing is.
    std::string errorOf(const std::string& text) {
        try {
            load(text);
        } catch (const tool::ConfigError& e) {
            return e.what();
        }
        return "no error";
    }

    // The file's path, then `rest`.
    std::string path(const std::string& rest = "") const { return scratch.file(name_) + rest; }

    bmcsim::ScratchDirectory scratch;

private:
    std::string name_;
};
