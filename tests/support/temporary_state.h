// A state folder of its own for each test, gone when the test ends.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "platform/standalone/store/state_folder.h"
#include "tests/support/whole_file.h"

/// A folder below the temporary one.
class TemporaryFolder {
public:
    TemporaryFolder() : path_(std::filesystem::temp_directory_path() / "recorder-XXXXXX") {
        if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary folder");
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

/// RECORDER_STATE points to a new folder with empty databases.
class TemporaryState {
public:
    TemporaryState() {
        setenv("RECORDER_STATE", folder_.path().c_str(), 1);
        standalone::make_state();
    }
    ~TemporaryState() { unsetenv("RECORDER_STATE"); }

    const std::string& folder() const { return folder_.path(); }

private:
    TemporaryFolder folder_;
};

/// A test on a fresh state folder.
class StateTest : public ::testing::Test {
protected:
    TemporaryState state_;
};
