// What a service tells systemd, on a socket that stands in for systemd's.
#include "services/service_manager.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

#include "platform/standalone/store/file_handle.h"
#include "services/event_loop.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace services;
using standalone::FileHandle;

class ServiceManagerTest : public ::testing::Test {
protected:
    ServiceManagerTest() {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path_.copy(address.sun_path, path_.size());
        const auto* generic = reinterpret_cast<const sockaddr*>(&address);
        EXPECT_EQ(bind(systemd_.get(), generic, sizeof address), 0);
        setenv("NOTIFY_SOCKET", path_.c_str(), 1);
    }
    ~ServiceManagerTest() override {
        for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) unsetenv(name);
    }

    /// "" when nothing was told since.
    std::string told() const {
        std::array<char, 100> words;
        const ssize_t size = recv(systemd_.get(), words.data(), words.size(), MSG_DONTWAIT);
        return size < 0 ? "" : std::string(words.data(), static_cast<std::size_t>(size));
    }

    static bool watches(const char* process, const char* patience) {
        setenv("WATCHDOG_PID", process, 1);
        setenv("WATCHDOG_USEC", patience, 1);
        EventLoop loop;
        return ServiceManager().watch(loop.get()) != nullptr;
    }

    TemporaryFolder folder_;
    std::string path_ = folder_.path() + "/notify";
    FileHandle systemd_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    std::string self_ = std::to_string(getpid());
};

TEST_F(ServiceManagerTest, TellsTheBeginningAndTheEnd) {
    const ServiceManager manager;
    EXPECT_EQ(told(), "");
    manager.tell_ready();
    EXPECT_EQ(told(), "READY=1");
    manager.tell_end();
    EXPECT_EQ(told(), "STOPPING=1");
}

TEST_F(ServiceManagerTest, TellsThatTheLoopTurnsUntilTheWatchEnds) {
    setenv("WATCHDOG_USEC", "2000", 1);
    const ServiceManager manager;
    EventLoop loop;
    auto watch = manager.watch(loop.get());
    const auto look = EventWatch::every(loop.get(), std::chrono::milliseconds(1), [&] {
        if (told() != "WATCHDOG=1") return;
        watch.reset();
        loop.stop();
    });
    loop.run();
    told();
    EXPECT_FALSE(watch);
}

TEST_F(ServiceManagerTest, LeavesNothingInTheEnvironment) {
    setenv("WATCHDOG_USEC", "2000", 1);
    setenv("WATCHDOG_PID", self_.c_str(), 1);
    const ServiceManager manager;
    for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
        EXPECT_EQ(std::getenv(name), nullptr) << name;
}

TEST_F(ServiceManagerTest, WatchesOnlyWhereThisProcessIsAskedTo) {
    EXPECT_TRUE(watches(self_.c_str(), "300000000"));
    for (const char* patience : {"", "0", "-1", "soon", "5x"}) {
        setenv("NOTIFY_SOCKET", path_.c_str(), 1);
        EXPECT_FALSE(watches(self_.c_str(), patience)) << patience;
    }
    setenv("NOTIFY_SOCKET", path_.c_str(), 1);
    EXPECT_FALSE(watches("1", "300000000"));
}

TEST_F(ServiceManagerTest, TellsNobodyWhereNobodyAsks) {
    for (const std::string& nobody : {std::string(), std::string(200, 'x'), path_ + "/none"}) {
        setenv("NOTIFY_SOCKET", nobody.c_str(), 1);
        ServiceManager().tell_ready();
        EXPECT_EQ(told(), "");
    }
    unsetenv("NOTIFY_SOCKET");
    EXPECT_FALSE(watches(self_.c_str(), "300000000"));
    ServiceManager().tell_ready();
    EXPECT_EQ(told(), "");
}

}  // namespace
