// What the main functions of the services do before, around and after the service.
#include "services/service_main.h"

#include <sys/stat.h>

#include <stdexcept>

#include "platform/standalone/store/schema.h"
#include "tests/support/temporary_state.h"

namespace {

class ServiceMain : public ::testing::Test {
protected:
    ServiceMain() : before_(umask(0)) {}
    ~ServiceMain() override {
        umask(before_);
        unsetenv("RECORDER_STATE");
    }

    /// The exit status; what was printed on standard error goes to said_.
    int run(const std::function<void()>& serve, std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), "program");
        std::vector<char*> pointers;
        for (std::string& argument : arguments) pointers.push_back(argument.data());
        testing::internal::CaptureStderr();
        const int status =
            services::service_main("recorder-x", "Serves.", static_cast<int>(pointers.size()),
                                   pointers.data(), serve, others_);
        said_ = testing::internal::GetCapturedStderr();
        return status;
    }

    /// Calls for another use; what it was called with goes to used_.
    services::OtherUse use(const std::string& option) {
        return {option, "WHAT", "Does.",
                [this, option](const std::string& value) { used_ += option + value; }};
    }

    TemporaryFolder folder_;
    std::vector<services::OtherUse> others_;
    std::string used_;
    std::string said_;
    mode_t before_;
};

TEST_F(ServiceMain, ServesWithFilesForItsOwnerAlone) {
    setenv("RECORDER_STATE", folder_.path().c_str(), 1);
    mode_t mask = 0;
    EXPECT_EQ(run([&] {
                  mask = umask(0);
                  umask(mask);
              }),
              0);
    EXPECT_EQ(mask, 0077U);
    EXPECT_EQ(said_, "");
}

TEST_F(ServiceMain, SaysInOneLineWhatWentWrong) {
    setenv("RECORDER_STATE", folder_.path().c_str(), 1);
    EXPECT_EQ(run([] { throw std::runtime_error("no port"); }), 1);
    EXPECT_EQ(said_, "recorder-x: no port\n");
}

TEST_F(ServiceMain, SaysWithItsStatusThatANewerVersionsDatabaseStaysOne) {
    setenv("RECORDER_STATE", folder_.path().c_str(), 1);
    EXPECT_EQ(run([] { throw standalone::NewerDatabase("config.db has schema 9"); }), 78);
    EXPECT_EQ(said_, "recorder-x: config.db has schema 9\n");
}

TEST_F(ServiceMain, ServesNothingWithoutAStateFolder) {
    for (const std::string& folder : {folder_.path() + "/none", std::string("/etc/passwd")}) {
        setenv("RECORDER_STATE", folder.c_str(), 1);
        bool served = false;
        EXPECT_EQ(run([&] { served = true; }), 1);
        EXPECT_FALSE(served);
        EXPECT_EQ(said_, "recorder-x: there is no state folder " + folder +
                             " (make one with: recorderctl init)\n");
    }
}

TEST_F(ServiceMain, RefusesArgumentsThatNobodyKnowsInOneLine) {
    setenv("RECORDER_STATE", folder_.path().c_str(), 1);
    bool served = false;
    EXPECT_GT(run([&] { served = true; }, {"--fast", "a\nb\xFF"}), 1);
    EXPECT_FALSE(served);
    EXPECT_EQ(
        said_,
        "recorder-x: The following arguments were not expected: a\\nb\xEF\xBF\xBD --fast; see "
        "--help\n");
}

TEST_F(ServiceMain, TellsOnOneLineWhatAFailureHasOfOthersWords) {
    setenv("RECORDER_STATE", folder_.path().c_str(), 1);
    EXPECT_EQ(run([] { throw std::runtime_error("there is no task a\nb\xFF"); }), 1);
    EXPECT_EQ(said_, "recorder-x: there is no task a\\nb\xEF\xBF\xBD\n");
}

TEST_F(ServiceMain, IsCalledForOneOtherUseAtATime) {
    setenv("RECORDER_STATE", folder_.path().c_str(), 1);
    others_ = {use("--one"), use("--two"), use("--three")};
    bool served = false;
    const auto serve = [&] { served = true; };
    EXPECT_EQ(run(serve, {"--two", "a"}), 0);
    EXPECT_EQ(used_, "--twoa");
    for (const char* other : {"--one", "--two"}) {
        EXPECT_GT(run(serve, {other, "a", "--three", "b"}), 1);
        EXPECT_EQ(said_, std::string("recorder-x: ") + other + " excludes --three; see --help\n");
    }
    EXPECT_EQ(used_, "--twoa");
    EXPECT_FALSE(served);
}

TEST(PlaceOf, NamesAllPorts) {
    EXPECT_EQ(services::place_of({10150}), "127.0.0.1, port 10150");
    EXPECT_EQ(services::place_of({10205, 10141}), "127.0.0.1, ports 10205 and 10141");
    EXPECT_EQ(services::place_of({1, 2, 3}), "127.0.0.1, ports 1, 2 and 3");
}

}  // namespace
