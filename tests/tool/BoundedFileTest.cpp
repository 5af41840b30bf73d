// Files read whole (the exporter's configuration, the web configuration, password files): only a
// regular file of at most 1 MiB is read; a directory, a FIFO, a device or a larger file is refused
// at once, naming the file. And the escaping of what such files and the network bring.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "ScratchDirectory.h"
#include "base/BoundedFile.h"
#include "base/Printable.h"
#include "cli/Options.h"
#include "exporter/ExporterConfig.h"
#include "web/WebConfig.h"

namespace {

// What reading `path` says is wrong with it; its text when nothing is.
std::string readOrError(const std::string& path, std::size_t limit = tool::kLargestReadFile) {
    try {
        return tool::readBoundedFile(path, limit).text;
    } catch (const tool::FileError& e) {
        return std::string("error: ") + e.what();
    }
}

template <typename Config>
std::string configError(Config (*load)(const std::string&), const std::string& path) {
    try {
        load(path);
    } catch (const tool::ConfigError& e) {
        return e.what();
    }
    return "no error";
}

std::string passwordError(const std::string& path) {
    try {
        tool::parseOptions({"-H", "bmc1", "-f", path, "list"});
    } catch (const tool::UsageError& e) {
        return e.what();
    }
    return "no error";
}

class BoundedFileTest : public ::testing::Test {
protected:
    BoundedFileTest() {
        scratch.write("regular", "first\r\nsecond\n");
        ::mkdir(scratch.file("directory").c_str(), 0755);
        ::mkfifo(scratch.file("fifo").c_str(), 0644);
        ::symlink("/dev/zero", scratch.file("zero").c_str());
    }

    bmcsim::ScratchDirectory scratch;
};

TEST_F(BoundedFileTest, OnlyARegularFileOfBoundedSizeIsRead) {
    EXPECT_EQ(readOrError(scratch.file("regular")), "first\r\nsecond\n");
    EXPECT_EQ(readOrError(scratch.file("directory")),
              "error: " + scratch.file("directory") + ": not a regular file");
    // A FIFO without a writer is refused, not waited on.
    EXPECT_EQ(readOrError(scratch.file("fifo")),
              "error: " + scratch.file("fifo") + ": not a regular file");
    EXPECT_EQ(readOrError(scratch.file("zero")),
              "error: " + scratch.file("zero") + ": not a regular file");
    EXPECT_EQ(readOrError(scratch.file("none")),
              "error: " + scratch.file("none") + ": No such file or directory");
    EXPECT_EQ(readOrError(""), "error: the file name is empty");
    EXPECT_EQ(readOrError(scratch.file("regular"), 14), "first\r\nsecond\n");
    EXPECT_EQ(readOrError(scratch.file("regular"), 13),
              "error: " + scratch.file("regular") + ": larger than 13 bytes");
    scratch.write("large", std::string(tool::kLargestReadFile + 1, 'x'));
    EXPECT_EQ(readOrError(scratch.file("large")),
              "error: " + scratch.file("large") + ": larger than 1 MiB");
    scratch.write("largest", std::string(tool::kLargestReadFile, 'x'));
    EXPECT_EQ(readOrError(scratch.file("largest")).size(), tool::kLargestReadFile);
}

TEST_F(BoundedFileTest, ConfigurationFilesThatAreNotRegularAreRefused) {
    for (const std::string name : {"directory", "fifo", "zero"}) {
        const std::string said = "cannot read " + scratch.file(name) + ": not a regular file";
        EXPECT_EQ(configError(tool::loadExporterConfig, scratch.file(name)), said);
        EXPECT_EQ(configError(tool::loadWebConfig, scratch.file(name)), said);
    }
    scratch.write("large.yml", "# " + std::string(tool::kLargestReadFile, 'x') + "\n");
    EXPECT_EQ(configError(tool::loadWebConfig, scratch.file("large.yml")),
              "cannot read " + scratch.file("large.yml") + ": larger than 1 MiB");
}

TEST_F(BoundedFileTest, PasswordFilesThatAreNotRegularAreRefused) {
    for (const std::string name : {"directory", "fifo", "zero"}) {
        EXPECT_EQ(passwordError(scratch.file(name)),
                  "cannot read a password from " + scratch.file(name) + ": not a regular file");
    }
    ASSERT_EQ(::chmod(scratch.file("regular").c_str(), 0600), 0);
    EXPECT_EQ(tool::parseOptions({"-H", "bmc1", "-f", scratch.file("regular"), "list"}).password,
              "first");
    scratch.write("pw", "s3cret\n");
    ASSERT_EQ(::chmod(scratch.file("pw").c_str(), 0600), 0);
    ::symlink(scratch.file("pw").c_str(), scratch.file("pw-link").c_str());
    EXPECT_EQ(tool::parseOptions({"-H", "bmc1", "-f", scratch.file("pw-link"), "list"}).password,
              "s3cret");
}

TEST_F(BoundedFileTest, PasswordFilesOthersCanReadAreWarnedOf) {
    scratch.write("pw", "s3cret\n");
    ASSERT_EQ(::chmod(scratch.file("pw").c_str(), 0644), 0);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(tool::parseOptions({"-H", "bmc1", "-f", scratch.file("pw"), "list"}).password,
              "s3cret");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "ipmi-event-log: warning: " + scratch.file("pw") +
                  ": others can read this file and the password in it; chmod o-r " +
                  scratch.file("pw") + "\n");
    ASSERT_EQ(::chmod(scratch.file("pw").c_str(), 0640), 0);
    ::testing::internal::CaptureStderr();
    tool::parseOptions({"-H", "bmc1", "-f", scratch.file("pw"), "list"});
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST(BoundedFile, TheFirstLineEndsAtLfOrCrLf) {
    EXPECT_EQ(tool::firstLine("pw\r\nnext\n"), "pw");
    EXPECT_EQ(tool::firstLine("pw\nnext"), "pw");
    EXPECT_EQ(tool::firstLine("pw"), "pw");
    EXPECT_EQ(tool::firstLine(""), "");
}

TEST(Printable, BytesOutsidePrintableAsciiAreEscaped) {
    EXPECT_EQ(tool::printable("bmc1.example:623"), "bmc1.example:623");
    EXPECT_EQ(tool::printable(std::string("a\0b\r\n\x1b[2J\x7f\xc3\xa9", 12)),
              "a\\x00b\\x0D\\x0A\\x1B[2J\\x7F\\xC3\\xA9");
    // Escaping twice changes nothing.
    EXPECT_EQ(tool::printable(tool::printable("\r\n")), "\\x0D\\x0A");
}

TEST(Options, AnEmptyConfigurationFileNameIsRefused) {
    EXPECT_THROW(tool::parseOptions({"--config", "", "serve"}), tool::UsageError);
    EXPECT_THROW(tool::parseOptions({"--web-config", "", "serve"}), tool::UsageError);
    try {
        tool::parseOptions({"--config", "", "serve"});
    } catch (const tool::UsageError& e) {
        EXPECT_STREQ(e.what(), "--config: the file name is empty");
    }
}

}  // namespace
