// Where copies go: what is made of each state of the two markers, and of a process that lies.
#include "services/backup_daemon/run/place_errand.h"

#include <gtest/gtest.h>

using namespace services;

namespace {

using Text = std::optional<std::string>;

const std::string RECORDER = "0123456789abcdef0123456789abcdef";
const std::string OTHER = "99999999999999999999999999999999";
const std::string PLACE = "fedcba9876543210fedcba9876543210";
const std::string FRESH = "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa";
const std::string KNOWN = "bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb";
const std::string OURS = marker_text({RECORDER, PLACE});
const std::string FOREIGN = marker_text({OTHER, PLACE});
const std::string OWN = "store/Recorder 01234567";

class PlaceErrandTest : public testing::Test {
protected:
    static FindPlace order(bool known = false, bool marked = false, bool own = false) {
        return {.folder = "store",
                .recorder = RECORDER,
                .task_id = "7",
                .known = {.id = known ? KNOWN : FRESH,
                          .is_known = known,
                          .marked = marked,
                          .own = own,
                          .fresh = FRESH}};
    }

    /// What an errand asks for next, as text.
    static std::string text_of(const std::optional<ErrandStep>& step) {
        if (!step) return "nonsense";
        if (step->over) return "over";
        if (!step->ask) return step->tell.empty() ? "nothing" : "told";
        if (const auto* read = std::get_if<ReadTexts>(&*step->ask)) {
            std::string all = "read";
            for (const std::string& path : read->paths) all += " " + path;
            return all;
        }
        if (const auto* write = std::get_if<WriteText>(&*step->ask))
            return "write " + write->path + " via " + write->temporary + ": " + write->text;
        if (const auto* removal = std::get_if<RemoveFiles>(&*step->ask)) {
            std::string all = "remove";
            for (const DoomedFile& file : removal->files) all += " " + file.path;
            return all;
        }
        const auto& claim = std::get<FolderClaim>(*step->ask);
        return "claim " + claim.folder + " via " + claim.temporary + " with " + claim.file + ": " +
               claim.text;
    }

    std::string begin(const FindPlace& wanted) {
        errand.emplace(wanted);
        return text_of(errand->begin());
    }

    std::string hear(const WorkerReport& said) {
        step = errand->hear(said);
        return text_of(step);
    }

    /// Begins, and tells what the markers say: the one in the own folder, and the shared one.
    std::string begin(const FindPlace& wanted, const Text& own, const Text& shared) {
        begin(wanted);
        return hear(Contents{{own, shared}});
    }

    FoundPlace found() const { return std::get<FoundPlace>(step->tell.at(0)); }
    Failed failure() const { return std::get<Failed>(step->tell.at(0)); }

    std::optional<PlaceErrand> errand;
    std::optional<ErrandStep> step;
};

const std::string LOOK = "read " + OWN +
                         "/.recording-backup/recorder.json "
                         "store/.recording-backup/recorder.json";
const std::string CLAIM_SHARED =
    "claim store/.recording-backup via "
    "store/.recording-backup.01234567-7 with recorder.json: " +
    marker_text({RECORDER, FRESH});
const std::string CLAIM_OWN =
    "claim " + OWN + "/.recording-backup via " + OWN +
    "/.recording-backup.01234567-7 with recorder.json: " + marker_text({RECORDER, FRESH});

TEST_F(PlaceErrandTest, UnmarkedFolderIsClaimed) {
    EXPECT_EQ(begin(order()), LOOK);
    EXPECT_EQ(hear(Contents{{{}, {}}}), CLAIM_SHARED);
    EXPECT_EQ(hear(Done()), "over");
    EXPECT_EQ(found().below, "");
    EXPECT_EQ(found().id, FRESH);
    EXPECT_TRUE(found().marked);
    EXPECT_TRUE(found().is_new);
}

TEST_F(PlaceErrandTest, OurMarkerTellsTheDestinationWhateverWasKnown) {
    for (const bool known : {false, true}) {
        EXPECT_EQ(begin(order(known, known), {}, OURS),
                  "read store/.recording-backup/cameras.json");
        EXPECT_EQ(hear(Contents{{cameras_text({{"g1", "Door"}}, 1000)}}),
                  "remove store/.recording-backup.01234567-7/recorder.json");
        EXPECT_EQ(hear(At{0}), "nothing") << "a sign of life";
        EXPECT_EQ(hear(Done()), "nonsense");
        EXPECT_EQ(hear(Removed{{Fate::gone, Fate::gone}}), "nonsense");
        EXPECT_EQ(hear(Removed{{Fate::gone}}), "over");
        EXPECT_EQ(found().below, "");
        EXPECT_EQ(found().id, PLACE);
        EXPECT_TRUE(found().marked);
        EXPECT_FALSE(found().is_new);
        EXPECT_EQ(found().cameras, (CameraFolders{{"g1", "Door"}}));
    }
}

TEST_F(PlaceErrandTest, AnotherRecordersFolderIsLeftToIt) {
    EXPECT_EQ(begin(order(), {}, FOREIGN), CLAIM_OWN);
    EXPECT_EQ(hear(Done()), "over");
    EXPECT_EQ(found().below, "Recorder 01234567");
    EXPECT_TRUE(found().is_new);
}

TEST_F(PlaceErrandTest, WhatIsKnownOfTheTasksFolderIsNotSaidOfTheOneBelow) {
    for (const bool marked : {false, true}) {
        EXPECT_EQ(begin(order(true, marked), {}, FOREIGN), CLAIM_OWN) << "with a new identifier";
        EXPECT_EQ(hear(Done()), "over");
        EXPECT_EQ(found().id, FRESH);
    }
    FindPlace look = order(true, true);
    look.only_look = true;
    begin(look, {}, FOREIGN);
    EXPECT_EQ(found().id, FRESH);
}

TEST_F(PlaceErrandTest, FolderOfItsOwnKeepsItsIdentifierWhenItsMarkerIsLost) {
    for (const Text& own : {Text(), Text("")}) {
        const std::string next = begin(order(true, true, true), own, FOREIGN);
        EXPECT_TRUE(next.starts_with(own ? "write " + OWN : "claim " + OWN)) << next;
        EXPECT_TRUE(next.ends_with(marker_text({RECORDER, KNOWN}))) << next;
        EXPECT_EQ(hear(Done()), "over");
        EXPECT_EQ(found().id, KNOWN);
    }
}

TEST_F(PlaceErrandTest, WhatIsKnownOfTheFolderBelowIsNotSaidOfTheTasks) {
    EXPECT_EQ(begin(order(true, true, true), {}, {}), CLAIM_SHARED);
    EXPECT_EQ(
        begin(order(true, true, true), {}, "nonsense"),
        "claim " + OWN + "/.recording-backup via " + OWN +
            "/.recording-backup.01234567-7 with recorder.json: " + marker_text({RECORDER, KNOWN}))
        << "ours was in the folder below: this one is another's";
    begin(order(true, true, true), {}, {});
    hear(Failed{FailureKind::full, "no room"});
    EXPECT_EQ(failure().kind, FailureKind::full) << "no place is known there";
}

TEST_F(PlaceErrandTest, FolderOfItsOwnStaysWhereThisRecordersCopiesAre) {
    for (const Text& shared : {Text(), Text(FOREIGN), Text(OURS), Text("nonsense")}) {
        EXPECT_EQ(begin(order(true, true), OURS, shared),
                  "read " + OWN + "/.recording-backup/cameras.json");
        EXPECT_EQ(hear(Contents{{Text()}}),
                  "remove store/.recording-backup.01234567-7/recorder.json " + OWN +
                      "/.recording-backup.01234567-7/recorder.json");
        EXPECT_EQ(hear(Failed{FailureKind::denied, "no"}), "over") << "it may stay";
        EXPECT_EQ(found().below, "Recorder 01234567");
        EXPECT_EQ(found().id, PLACE);
    }
}

TEST_F(PlaceErrandTest, WhoComesSecondLooksAgain) {
    begin(order(), {}, {});
    EXPECT_EQ(hear(Failed{FailureKind::occupied, "taken"}), LOOK);
    EXPECT_EQ(hear(Contents{{{}, FOREIGN}}), CLAIM_OWN);
    EXPECT_EQ(hear(Failed{FailureKind::occupied, "taken"}), LOOK);
    EXPECT_EQ(hear(Contents{{OURS, FOREIGN}}), "read " + OWN + "/.recording-backup/cameras.json")
        << "another task of this recorder's was first";
    hear(Contents{{Text()}});
    EXPECT_EQ(hear(Removed{{Fate::gone, Fate::gone}}), "over");
    EXPECT_EQ(found().id, PLACE);
}

TEST_F(PlaceErrandTest, MarkerThatCannotBeReadIsAnothersUnlessOursWasThere) {
    for (const char* broken : {"", "{", "\0\0\0\0"}) {
        EXPECT_EQ(begin(order(false, false), {}, broken), CLAIM_OWN);
        EXPECT_EQ(begin(order(true, false), {}, broken), CLAIM_OWN);
        EXPECT_EQ(begin(order(true, true), {}, broken),
                  "write store/.recording-backup/recorder.json via "
                  "store/.recording-backup/.recorder.json.01234567-7.part: " +
                      marker_text({RECORDER, KNOWN}));
        EXPECT_EQ(hear(Done()), "over");
        EXPECT_EQ(found().below, "");
        EXPECT_EQ(begin(order(), broken, FOREIGN),
                  "write " + OWN + "/.recording-backup/recorder.json via " + OWN +
                      "/.recording-backup/.recorder.json.01234567-7.part: " +
                      marker_text({RECORDER, FRESH}));
    }
}

TEST_F(PlaceErrandTest, NameThatIsTakenByWhatCannotBeReadIsAMarkerThatCannotBeRead) {
    begin(order(), {}, {});
    hear(Failed{FailureKind::occupied, "taken"});
    EXPECT_EQ(hear(Contents{{{}, {}}}), CLAIM_OWN);
    hear(Failed{FailureKind::occupied, "taken"});
    EXPECT_TRUE(hear(Contents{{{}, {}}}).starts_with("write " + OWN));
    begin(order(true, true), {}, {});
    hear(Failed{FailureKind::occupied, "taken"});
    EXPECT_TRUE(hear(Contents{{{}, {}}}).starts_with("write store/.recording-backup"));
}

TEST_F(PlaceErrandTest, OwnFolderOfAnotherRecorderFailsTheRun) {
    EXPECT_EQ(begin(order(), FOREIGN, FOREIGN), "over");
    EXPECT_EQ(failure().kind, FailureKind::denied);
    EXPECT_EQ(failure().text, OWN + ": another recorder's folder");
}

TEST_F(PlaceErrandTest, KnownPlaceIsUsedWithoutAMarkerWhereNoneCanBeMadeNow) {
    for (const FailureKind kind : {FailureKind::full, FailureKind::denied}) {
        begin(order(true, false), {}, {});
        EXPECT_EQ(hear(Failed{kind, "no"}), "over");
        EXPECT_EQ(found().id, KNOWN);
        EXPECT_FALSE(found().marked);
        begin(order(true, false), {}, FOREIGN);
        EXPECT_EQ(hear(Failed{kind, "no"}), "over");
        EXPECT_EQ(failure().text, "no") << "not in another recorder's folder";
    }
}

TEST_F(PlaceErrandTest, UnknownPlaceNeedsItsMarker) {
    begin(order(), {}, {});
    EXPECT_EQ(hear(Failed{FailureKind::full, "no room"}), "over");
    EXPECT_EQ(failure().kind, FailureKind::full);
    begin(order(), {}, {});
    hear(Failed{FailureKind::denied, "no"});
    EXPECT_EQ(failure().kind, FailureKind::other) << "it may pass";
    begin(order(true, true), {}, {});
    hear(Failed{FailureKind::lost, "gone"});
    EXPECT_EQ(failure().kind, FailureKind::lost);
}

TEST_F(PlaceErrandTest, ClaimsAreNotRepeatedForEver) {
    begin(order(), {}, {});
    int looks = 1;
    std::string next = hear(Failed{FailureKind::occupied, "taken"});
    for (; next == LOOK && looks < 100; ++looks) {
        hear(Contents{{{}, FOREIGN}});
        next = hear(Failed{FailureKind::occupied, "taken"});
    }
    EXPECT_EQ(next, "over");
    EXPECT_LT(looks, 10);
}

TEST_F(PlaceErrandTest, SpoiltMarkerOnAFullShareIsMendedWhenThereIsRoom) {
    begin(order(true, true), {}, "");
    EXPECT_EQ(hear(Failed{FailureKind::full, "no room"}), "over");
    EXPECT_EQ(found().id, KNOWN);
    EXPECT_FALSE(found().marked);
    begin(order(true, true), "", FOREIGN);
    EXPECT_EQ(hear(Failed{FailureKind::full, "no room"}), "over");
    EXPECT_EQ(failure().kind, FailureKind::full) << "nothing is known of the folder below";
    begin(order(true, true), {}, "");
    hear(Failed{FailureKind::denied, "no"});
    EXPECT_EQ(failure().kind, FailureKind::denied);
}

TEST_F(PlaceErrandTest, MarkerThatMustNotBeReadFailsTheRun) {
    begin(order(true, true));
    EXPECT_EQ(hear(Failed{FailureKind::denied, "no"}), "over");
    EXPECT_EQ(failure().kind, FailureKind::denied);
    EXPECT_EQ(failure().text, "no: nobody can tell whose folder it is");
}

TEST_F(PlaceErrandTest, ListOfCamerasThatMustNotBeReadIsNone) {
    begin(order(true, true), {}, OURS);
    EXPECT_TRUE(hear(Failed{FailureKind::denied, "no"}).starts_with("remove"));
    EXPECT_EQ(hear(Removed{{Fate::gone}}), "over");
    EXPECT_EQ(found().id, PLACE);
    EXPECT_TRUE(found().cameras.empty());
}

TEST_F(PlaceErrandTest, WhoOnlyLooksMakesAndRemovesNothing) {
    FindPlace look = order();
    look.only_look = true;
    EXPECT_EQ(begin(look, {}, {}), "over");
    EXPECT_EQ(found().below, "");
    EXPECT_FALSE(found().marked);
    EXPECT_EQ(begin(look, {}, FOREIGN), "over");
    EXPECT_EQ(found().below, "Recorder 01234567");
    EXPECT_EQ(begin(look, {}, OURS), "read store/.recording-backup/cameras.json");
    EXPECT_EQ(hear(Contents{{cameras_text({{"g1", "Door"}}, 1000)}}), "over");
    EXPECT_EQ(found().id, PLACE);
    look.known.marked = true;
    EXPECT_EQ(begin(look, {}, "nonsense"), "over");
}

TEST_F(PlaceErrandTest, WhatNobodyAskedForIsNonsense) {
    const Contents two{{Text(), Text()}};
    const Contents one{{Text()}};
    begin(order());
    for (const WorkerReport& said :
         {WorkerReport(one), WorkerReport(Contents()), WorkerReport(Done()), WorkerReport(Ready()),
          WorkerReport(At{1}),
          WorkerReport(Contents{{Text(), std::string(LONGEST_TEXT + 1, 'x')}})})
        EXPECT_EQ(hear(said), "nonsense") << said.index();
    begin(order(), {}, {});
    for (const WorkerReport& said : {WorkerReport(one), WorkerReport(two), WorkerReport(Ready())})
        EXPECT_EQ(hear(said), "nonsense") << said.index();
    begin(order(), {}, OURS);
    for (const WorkerReport& said : {WorkerReport(two), WorkerReport(Done())})
        EXPECT_EQ(hear(said), "nonsense") << said.index();
}

}  // namespace
