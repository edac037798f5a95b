// The list of failures: its length, and which of them end a connection.
#include "services/backup_daemon/copy/copy_failure.h"

#include <gtest/gtest.h>

using namespace services;

namespace {

TEST(CopyFailure, LostAndRefusedConnectionsAreOfNoFurtherUse) {
    for (const FailureKind kind : {FailureKind::lost, FailureKind::refused, FailureKind::unknown})
        EXPECT_TRUE(ends_connection(kind));
    for (const FailureKind kind :
         {FailureKind::full, FailureKind::denied, FailureKind::other, FailureKind::gone,
          FailureKind::source, FailureKind::occupied, FailureKind::mismatch})
        EXPECT_FALSE(ends_connection(kind));
}

TEST(CopyFailure, LastKindIsTheLast) {
    EXPECT_EQ(LAST_FAILURE_KIND, FailureKind::mismatch);
    EXPECT_EQ(static_cast<int>(LAST_FAILURE_KIND), 9);
}

TEST(CopyFailure, CarriesItsKindAndItsWords) {
    const CopyFailure failure(FailureKind::full, "no room");
    EXPECT_EQ(failure.kind, FailureKind::full);
    EXPECT_EQ(std::string(failure.what()), "no room");
}

}  // namespace
