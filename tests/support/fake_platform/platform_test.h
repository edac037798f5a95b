// The fixture that gives each test a fresh fake platform, and short ways to say what is expected.
#pragma once

#include <gtest/gtest.h>
#include <json-c/json.h>

#include <ctime>

#include "tests/support/fake_platform/fake_platform.h"

using Strings = std::vector<std::string>;

class PlatformTest : public ::testing::Test {
protected:
    void SetUp() override {
        fake::reset();
        set_zone("UTC0");
    }

    /// Sets the process's time zone, as POSIX writes TZ.
    static void set_zone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }

    /// Prints a reply and releases it.
    static std::string printed(json_object* reply) {
        const std::string text = json_object_to_json_string(reply);
        json_object_put(reply);
        return text;
    }

    /// The error reply as it is printed.
    static std::string error_reply(const std::string& code, const std::string& message) {
        return R"({ "ret_code": )" + code + R"(, "mesg": ")" + message + R"(" })";
    }
};

/// The same for tests of operations, one call after the other.
class OperationTest : public PlatformTest {
protected:
    /// Keeps the text of the reply that the call just made left, and empties the slot.
    int finish(int result) {
        text = printed(reply);
        reply = nullptr;
        return result;
    }

    json_object* reply = nullptr;
    std::string text;
};
