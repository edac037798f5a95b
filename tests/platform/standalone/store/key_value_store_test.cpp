// Single configuration keys: by section and key, as they stand in the database now.
#include "platform/standalone/store/key_value_store.h"

#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;

class KeyValueStoreTest : public StateTest {
protected:
    Database database_{registry_database_path(), Database::Access::writing};
    KeyValueStore keys_{database_};
};

TEST_F(KeyValueStoreTest, GivesTheNewestValueOfAKeyOfASection) {
    EXPECT_FALSE(keys_.get("backup", "limit"));
    keys_.set("backup", "limit", "1");
    keys_.set("backup", "limit", "2");
    keys_.set("backup", "other", "3");
    keys_.set("log", "limit", "");
    EXPECT_EQ(keys_.get("backup", "limit"), "2");
    EXPECT_EQ(keys_.get("backup", "other"), "3");
    EXPECT_EQ(keys_.get("log", "limit"), "");
    EXPECT_FALSE(keys_.get("log", "other"));
    EXPECT_FALSE(keys_.get("Backup", "limit"));
}

TEST_F(KeyValueStoreTest, UnsetTakesOneKeyOfOneSection) {
    keys_.set("backup", "limit", "1");
    keys_.set("backup", "other", "2");
    keys_.set("log", "limit", "3");
    EXPECT_TRUE(keys_.unset("backup", "limit"));
    EXPECT_FALSE(keys_.unset("backup", "limit"));
    EXPECT_FALSE(keys_.get("backup", "limit"));
    EXPECT_EQ(keys_.get("backup", "other"), "2");
    EXPECT_EQ(keys_.get("log", "limit"), "3");
}

TEST_F(KeyValueStoreTest, SeesWhatAnotherConnectionSetSinceAndIsInNobodysWay) {
    Database reading(registry_database_path(), Database::Access::reading);
    KeyValueStore reader(reading);
    keys_.set("s", "k", "1");
    EXPECT_EQ(reader.get("s", "k"), "1");
    keys_.set("s", "k", "2");
    EXPECT_EQ(reader.get("s", "k"), "2");
}

}  // namespace
