// What becomes of events of runs that cannot be stored.
#include "services/backup_daemon/tell/run_events.h"

#include <filesystem>

#include "platform/standalone/store/state_folder.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace services;

class RunEvents : public StateTest {};

TEST_F(RunEvents, LostOneIsPrintedOnOneLineWhateverItsTexts) {
    std::filesystem::remove(standalone::event_database_path());
    testing::internal::CaptureStderr();
    write_run_event(RUN_FAILED, "Doors\nevent", "x\r\ntask 1");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "event 23150013 of task \"Doors\\nevent\" is lost: x\\r\\ntask 1\n");
}

}  // namespace
