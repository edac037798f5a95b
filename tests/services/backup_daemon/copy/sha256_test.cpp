// SHA-256, in one piece and in many.
#include "services/backup_daemon/copy/sha256.h"

#include <gtest/gtest.h>

#include "services/backup_daemon/copy/content_hash.h"

using namespace services;

namespace {

constexpr char OF_NOTHING[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr char OF_AB[] = "fb8e20fc2e4c3f248c60c39bd652f3c1347298bb977b8b4d5903b85055620603";
constexpr char OF_ABC[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

TEST(Sha256, MayBeAskedInTheMiddle) {
    Sha256 hash;
    EXPECT_EQ(hash.hex(), OF_NOTHING);
    hash.add("ab", 2);
    EXPECT_EQ(hash.hex(), OF_AB);
    hash.add("c", 1);
    EXPECT_EQ(hash.hex(), OF_ABC);
}

TEST(ContentHash, CanBeginAnewAndGoOnFromElsewhere) {
    ContentHash hash(true);
    hash.add("x", 1);
    hash.restart();
    EXPECT_EQ(hash.hex(), OF_NOTHING);
    Sha256 beginning;
    beginning.add("ab", 2);
    hash.go_on_from(std::move(beginning));
    hash.add("c", 1);
    EXPECT_EQ(hash.hex(), OF_ABC);
}

TEST(ContentHash, IsEmptyWhereNobodyWantsIt) {
    ContentHash hash(false);
    hash.add("x", 1);
    hash.restart();
    hash.go_on_from(Sha256());
    EXPECT_EQ(hash.hex(), "");
}

}  // namespace
