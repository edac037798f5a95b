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

TEST(Destination, KeyTellsServersPortsSharesAndFoldersApart) {
    TDataBackupConfig task;
    task.serverIP = "10.0.0.9";
    task.port = 445;
    task.destPath = "/share/a";
    const std::string key = destination_of(task).key();
    EXPECT_EQ(destination_of(task).server, "10.0.0.9");
    EXPECT_EQ(destination_of(task).port, 445);
    TDataBackupConfig other = task;
    other.serverIP = "10.0.0.8";
    EXPECT_NE(destination_of(other).key(), key);
    other = task;
    other.port = 4450;
    EXPECT_NE(destination_of(other).key(), key);
    other = task;
    other.destPath = "/other/a";
    EXPECT_NE(destination_of(other).key(), key);
    other.destPath = "/share/b";
    EXPECT_NE(destination_of(other).key(), key);
    other.destPath = "/share";
    EXPECT_NE(destination_of(other).key(), key);
}

TEST(Destination, TasksOnOneShareHaveItsKeyInCommon) {
    TDataBackupConfig task;
    task.serverIP = "10.0.0.9";
    task.port = 445;
    task.destPath = "/share/a";
    EXPECT_EQ(destination_of(task).share_key(), "//10.0.0.9:445/share");
    task.destPath = "share";
    EXPECT_EQ(destination_of(task).share_key(), "//10.0.0.9:445/share");
}

}  // namespace
