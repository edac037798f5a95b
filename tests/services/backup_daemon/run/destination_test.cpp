// Where a task's copies go, in every spelling of its path.
#include "services/backup_daemon/run/destination.h"

#include <gtest/gtest.h>

using namespace services;

namespace {

TEST(Destination, IsReadInEverySpelling) {
    TDataBackupConfig task;
    task.serverIP = "10.0.0.9";
    task.port = 445;
    for (const char* path : {"/share/a/b", "share/a/b/", "\\share\\a\\b", "//share//a/b"}) {
        task.destPath = path;
        EXPECT_EQ(destination_of(task).key(), "//10.0.0.9:445/share/a/b");
        EXPECT_EQ(destination_of(task).folder, "a/b");
    }
    task.destPath = "/share";
    EXPECT_EQ(destination_of(task).folder, "");
    EXPECT_EQ(destination_of(task).share, "share");
    task.destPath = "/";
    EXPECT_EQ(destination_of(task).share, "");
    task.destPath = "/share/../../etc";
    EXPECT_EQ(destination_of(task).folder, "._/._/etc");
}

}  // namespace
