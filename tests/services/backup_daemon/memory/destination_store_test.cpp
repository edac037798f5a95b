// What the store remembers of destinations: addresses, markers, cameras' folders, what is merged.
#include "services/backup_daemon/memory/destination_store.h"

#include "services/backup_daemon/memory/copy_store.h"
#include "tests/services/backup_daemon/memory/memory_test.h"

namespace {

using namespace services;
using Folders = std::map<std::string, std::string>;

class DestinationStoreTest : public MemoryTest {
protected:
    void record(const std::string& destination, const std::string& path, long long size = 1) {
        CopiedFile file;
        file.path = path;
        file.size = size;
        CopyStore(memory_.runs, "1", destination).record(file);
    }

    std::map<std::string, CopiedFile> copies(const std::string& destination) {
        return CopyStore(memory_.runs, "1", destination).copied_in("Door/");
    }

    /// An address with copies of a version without markers.
    void make_older(const std::string& address, const std::string& id) {
        memory_.runs.prepare("INSERT INTO destination (id) VALUES (?)").bind(1, id).step();
        auto insert =
            memory_.runs.prepare("INSERT INTO destination_address (address, id) VALUES (?, ?)");
        insert.bind(1, address).bind(2, id).step();
    }

    DestinationStore store_{memory_.runs, "//nas:445/a"};
    DestinationStore other_{memory_.runs, "//10.0.0.5:446/a"};
};

TEST_F(DestinationStoreTest, NewAddressGetsAnIdentifierThatIsNotKeptBeforeItIsSettled) {
    const KnownPlace place = store_.known();
    EXPECT_EQ(place.id.size(), 32U);
    EXPECT_FALSE(place.is_known);
    EXPECT_NE(store_.known().id, place.id);
    store_.settle({place.id, false});
    EXPECT_EQ(store_.known().id, place.id);
    EXPECT_TRUE(store_.known().is_known);
    EXPECT_FALSE(store_.known().marked);
    EXPECT_FALSE(other_.known().is_known);
}

TEST_F(DestinationStoreTest, TwoAddressesLeadToOneDestination) {
    store_.settle({"d1", true});
    other_.settle({"d1", true});
    EXPECT_TRUE(store_.known().marked);
    store_.add_camera_folder("g1", "Door", "door");
    EXPECT_EQ(other_.camera_folders(), (Folders{{"g1", "Door"}}));
}

TEST_F(DestinationStoreTest, MarkerThatWasSeenOnceIsRemembered) {
    store_.settle({"d1", true});
    store_.settle({"d1", false});
    EXPECT_TRUE(store_.known().marked);
}

TEST_F(DestinationStoreTest, AddressLeadsToWhatWasFoundThereLast) {
    store_.settle({"d1", true});
    record("d1", "Door/1.mp4");
    store_.settle({"d2", true});
    EXPECT_EQ(store_.known().id, "d2");
    EXPECT_EQ(copies("d1").size(), 1U) << "it may be met again at another address";
    EXPECT_TRUE(copies("d2").empty());
    other_.settle({"d1", true});
    EXPECT_EQ(other_.known().id, "d1");
}

TEST_F(DestinationStoreTest, WhatAnOlderVersionRecordedGoesOverToTheMarkersDestination) {
    make_older("//nas:445/a", "old");
    record("old", "Door/1.mp4", 1);
    record("old", "Door/2.mp4", 2);
    CopyStore(memory_.runs, "1", "old").save({"Door/3.mp4", "t", 7, ""});
    other_.settle({"d1", true});
    record("d1", "Door/2.mp4", 22);
    store_.settle({"d1", true});
    EXPECT_EQ(store_.known().id, "d1");
    const auto all = copies("d1");
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all.at("Door/1.mp4").size, 1);
    EXPECT_EQ(all.at("Door/2.mp4").size, 22) << "the destination's own is the newer one";
    EXPECT_EQ(CopyStore(memory_.runs, "1", "d1").checkpoint("Door/3.mp4")->offset, 7);
    EXPECT_EQ(count("copied_file"), 2);
    EXPECT_EQ(count("checkpoint"), 1);
    EXPECT_EQ(count("destination"), 1);
}

TEST_F(DestinationStoreTest, FolderOfTheRecordersOwnTakesNothingInOfTheTasksFolder) {
    make_older("//nas:445/a", "old");
    record("old", "Door/1.mp4");
    EXPECT_FALSE(store_.known().own);
    store_.settle({"d1", true, true});
    EXPECT_EQ(store_.known().id, "d1");
    EXPECT_TRUE(store_.known().own);
    EXPECT_TRUE(copies("d1").empty()) << "what lies in another folder is not there";
    EXPECT_EQ(copies("old").size(), 1U);
}

TEST_F(DestinationStoreTest, IdentifierThatNoDestinationHasIsToldBesideTheKnownOne) {
    store_.settle({"d1", true});
    EXPECT_EQ(store_.known().fresh.size(), 32U);
    EXPECT_NE(store_.known().fresh, store_.known().fresh);
}

TEST_F(DestinationStoreTest, OlderDestinationsFoldersGoOverUnlessTheCameraOrItsNameIsTaken) {
    make_older("//nas:445/a", "old");
    store_.settle({"old", false});
    store_.add_camera_folder("g1", "Door", "door");
    store_.add_camera_folder("g2", "Yard", "yard");
    store_.add_camera_folder("g3", "Hall", "hall");
    other_.settle({"d1", true});
    other_.add_camera_folder("g1", "Front door", "front door");
    other_.add_camera_folder("g4", "YARD", "yard");
    store_.settle({"d1", true});
    EXPECT_EQ(store_.camera_folders(),
              (Folders{{"g1", "Front door"}, {"g3", "Hall"}, {"g4", "YARD"}}));
}

TEST_F(DestinationStoreTest, CopiesInAFolderThatIsAnotherCamerasAreForgotten) {
    make_older("//nas:445/a", "old");
    store_.settle({"old", false});
    store_.add_camera_folder("g1", "Door", "door");
    store_.add_camera_folder("g2", "Yard", "yard");
    for (const char* path : {"Door/1.mp4", "Yard/1.mp4", "Door 2/1.mp4"}) record("old", path);
    other_.settle({"d1", true});
    other_.add_camera_folder("g9", "Door", "door");
    other_.add_camera_folder("g2", "Yard", "yard");
    store_.settle({"d1", true});
    EXPECT_EQ(store_.folders_of_copies(), (std::set<std::string>{"Door 2", "Yard"}));
    EXPECT_EQ(store_.camera_folders(), (Folders{{"g2", "Yard"}, {"g9", "Door"}}));
}

TEST_F(DestinationStoreTest, CopiesThatNobodyKnowsTheCameraOfAreForgottenInACamerasFolder) {
    make_older("//nas:445/a", "old");
    record("old", "Door/1.mp4");
    other_.settle({"d1", true});
    other_.add_camera_folder("g1", "Door", "door");
    store_.settle({"d1", true});
    EXPECT_TRUE(copies("d1").empty());
}

TEST_F(DestinationStoreTest, CameraGetsNoFolderThatHasCopiesOfAnUnknownOne) {
    make_older("//nas:445/a", "old");
    store_.settle({"old", false});
    store_.add_camera_folder("g1", "Door", "door");
    other_.settle({"d1", true});
    record("d1", "Door/1.mp4");
    store_.settle({"d1", true});
    EXPECT_TRUE(store_.camera_folders().empty());
    EXPECT_EQ(copies("d1").size(), 1U);
}

TEST_F(DestinationStoreTest, WhatARunWritesAtAPlaceThatWasTakenInIsTakenInLater) {
    make_older("//nas:445/a", "old");
    store_.settle({"old", false});
    store_.add_camera_folder("g1", "Door", "door");
    record("old", "Door/1.mp4");
    other_.settle({"d1", true});
    store_.settle({"d1", true});
    // The run of another task that was at work there.
    record("old", "Door/2.mp4");
    CopyStore(memory_.runs, "2", "old").save({"Door/3.mp4", "t", 7, ""});
    EXPECT_EQ(copies("d1").size(), 1U);
    other_.settle({"d1", true});
    EXPECT_EQ(copies("d1").size(), 2U);
    EXPECT_EQ(CopyStore(memory_.runs, "2", "d1").checkpoint("Door/3.mp4")->offset, 7);
    EXPECT_TRUE(copies("old").empty());
}

TEST_F(DestinationStoreTest, NoTwoCamerasOfADestinationHaveOneFolder) {
    store_.settle({"d1", true});
    store_.add_camera_folder("g1", "Door", "door");
    EXPECT_THROW(store_.add_camera_folder("g2", "DOOR", "door"), standalone::DatabaseError);
    EXPECT_THROW(store_.add_camera_folder("g1", "Yard", "yard"), standalone::DatabaseError);
    other_.settle({"d2", true});
    other_.add_camera_folder("g2", "DOOR", "door");
}

TEST_F(DestinationStoreTest, FoldersOfCopiesAreToldWithoutThoseBelow) {
    store_.settle({"d1", true});
    EXPECT_TRUE(store_.folders_of_copies().empty());
    for (const char* path : {"Door/a/1", "Door/b/1", "Door 2/a/1", "Door0/a/1", "T\u00fcr/a/1"})
        record("d1", path);
    record("d2", "Yard/a/1");
    EXPECT_EQ(store_.folders_of_copies(),
              (std::set<std::string>{"Door", "Door 2", "Door0", "T\u00fcr"}));
}

TEST_F(DestinationStoreTest, AddressesOfOlderVersionsAreToldUntilTheirFoldersAreKnown) {
    store_.settle({"d1", true});
    EXPECT_TRUE(DestinationStore::addresses_without_folders(memory_.runs).empty());
    make_older("//10.0.0.5:446/a", "old");
    EXPECT_EQ(DestinationStore::addresses_without_folders(memory_.runs),
              std::vector<std::string>{"//10.0.0.5:446/a"});
    other_.settle({"old", false});
    other_.folders_are_known();
    EXPECT_TRUE(DestinationStore::addresses_without_folders(memory_.runs).empty());
}

TEST_F(DestinationStoreTest, RoomIsTheLastThatTheShareHasTold) {
    const auto room = [&] {
        standalone::Statement row = memory_.runs.prepare(
            "SELECT free || ' of ' || total FROM share_room WHERE destination = '//nas:445/a' "
            "AND abs(time - unixepoch()) < 1000");
        return row.step() ? row.text(0) : "";
    };
    EXPECT_EQ(room(), "");
    store_.note_room("//nas:445/a", KnownRoom{5, 9});
    store_.note_room("//nas:445/a", KnownRoom{4, 9});
    UnwrittenDestinations(memory_.runs, "//nas:445/a").note_room("//nas:445/a", KnownRoom{1, 9});
    EXPECT_EQ(room(), "4 of 9");
    store_.note_room("//nas:445/a", {});
    EXPECT_EQ(room(), "") << "it does not tell any more";
}

}  // namespace
