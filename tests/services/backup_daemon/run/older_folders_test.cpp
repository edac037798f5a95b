// Cameras keep the folders of a version that kept no record of them, where there is no doubt.
#include "services/backup_daemon/run/older_folders.h"

#include "services/backup_daemon/memory/copy_store.h"
#include "services/backup_daemon/memory/destination_store.h"
#include "tests/services/backup_daemon/memory/memory_test.h"

namespace {

using namespace services;
using Folders = std::map<std::string, std::string>;

standalone::Channel channel(const std::string& guid, const std::string& name, int index = 1) {
    standalone::Channel made;
    made.index = index;
    made.guid = guid;
    made.name = name;
    return made;
}

class OlderFoldersTest : public MemoryTest {
protected:
    OlderFoldersTest() {
        memory_.runs.run(
            "INSERT INTO destination (id) VALUES ('old'); "
            "INSERT INTO destination_address (address, id) VALUES ('//nas:445/a', 'old')");
    }

    void copied(const std::string& path) {
        CopiedFile file;
        file.path = path;
        CopyStore(memory_.runs, "1", "old").record(file);
    }

    Folders folders() {
        DestinationStore store(memory_.runs, "//nas:445/a");
        store.settle({"old", false});
        return store.camera_folders();
    }
};

TEST_F(OlderFoldersTest, CamerasKeepTheFoldersThatTheirCopiesAreIn) {
    for (const char* path : {"Door/a/1", "Channel 7/a/1", "Yard g3/a/1", "yard g4/a/1"})
        copied(path);
    take_over_folders(memory_.runs,
                      {channel("g1", "Door"), channel("g2", "", 7), channel("g3", "Yard"),
                       channel("g4", "yard"), channel("g5", "Hall")});
    EXPECT_EQ(folders(),
              (Folders{{"g1", "Door"}, {"g2", "Channel 7"}, {"g3", "Yard g3"}, {"g4", "yard g4"}}));
}

TEST_F(OlderFoldersTest, FolderThatTwoCamerasSharedIsNeithers) {
    const std::string name(200, 'x');
    copied(name + "/a/1");
    copied("\u00c4/a/1");
    take_over_folders(memory_.runs, {channel("g1", name), channel("g2", name),
                                     channel("g3", "\u00c4"), channel("g4", "\u00e4")});
    EXPECT_EQ(folders(), Folders());
}

TEST_F(OlderFoldersTest, HappensOnceWhateverTheCamerasAreCalledLater) {
    copied("Door/a/1");
    take_over_folders(memory_.runs, {channel("g1", "Gate")});
    EXPECT_EQ(folders(), Folders());
    take_over_folders(memory_.runs, {channel("g1", "Door")});
    EXPECT_EQ(folders(), Folders());
}

TEST_F(OlderFoldersTest, NothingIsKnownWhenItBreaks) {
    copied("Door/a/1");
    memory_.runs.run(
        "CREATE TEMP TRIGGER refuse BEFORE UPDATE ON destination "
        "BEGIN SELECT RAISE(ABORT, 'no'); END");
    EXPECT_THROW(take_over_folders(memory_.runs, {channel("g1", "Door")}),
                 standalone::DatabaseError);
    EXPECT_EQ(count("camera_folder"), 0);
    memory_.runs.run("DROP TRIGGER refuse");
    take_over_folders(memory_.runs, {channel("g1", "Door")});
    EXPECT_EQ(folders(), (Folders{{"g1", "Door"}}));
}

}  // namespace
