// The accounts: one of a name, a password that nobody can read, levels as they were given.
#include "platform/standalone/store/user_store.h"

#include <sodium.h>

#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;

class UserStoreTest : public StateTest {
protected:
    std::string hash_of(const std::string& name) {
        Statement row = database_.prepare("SELECT password_hash FROM user WHERE name = ?");
        return row.bind(1, name).step() ? row.text(0) : "";
    }

    Database database_{registry_database_path(), Database::Access::writing};
    UserStore users_{database_};
};

TEST_F(UserStoreTest, ListsAccountsByNameWithTheirLevels) {
    EXPECT_TRUE(users_.add({"zoe", 12}, "a"));
    EXPECT_TRUE(users_.add({"guest", 3}, "b"));
    EXPECT_TRUE(users_.add({"admin"}, "c"));
    const auto users = users_.list();
    ASSERT_EQ(users.size(), 3U);
    EXPECT_EQ(users[0].name, "admin");
    EXPECT_EQ(users[0].level, ADMINISTRATOR_LEVEL);
    EXPECT_EQ(users[1].name, "guest");
    EXPECT_EQ(users[1].level, 3U);
    EXPECT_EQ(users[2].name, "zoe");
    EXPECT_EQ(users[2].level, 12U);
}

TEST_F(UserStoreTest, SecondAccountOfANameChangesNothing) {
    users_.add({"admin", 11}, "first");
    const std::string hash = hash_of("admin");
    EXPECT_FALSE(users_.add({"admin", 1}, "second"));
    EXPECT_EQ(users_.list().size(), 1U);
    EXPECT_EQ(users_.list().front().level, 11U);
    EXPECT_EQ(hash_of("admin"), hash);
}

TEST_F(UserStoreTest, PasswordIsKeptAsASaltedHashThatItAloneFits) {
    users_.add({"one", 11}, "secret");
    users_.add({"other", 11}, "secret");
    const std::string hash = hash_of("one");
    EXPECT_TRUE(hash.starts_with("$argon2id$")) << hash;
    EXPECT_NE(hash, hash_of("other"));
    EXPECT_EQ(crypto_pwhash_str_verify(hash.c_str(), "secret", 6), 0);
    EXPECT_NE(crypto_pwhash_str_verify(hash.c_str(), "secre", 5), 0);
}

TEST_F(UserStoreTest, RemovesTheAccountOfANameAlone) {
    users_.add({"one", 11}, "secret");
    users_.add({"other", 11}, "secret");
    EXPECT_TRUE(users_.remove("one"));
    EXPECT_FALSE(users_.remove("one"));
    EXPECT_FALSE(users_.exists("one"));
    EXPECT_TRUE(users_.exists("other"));
}

TEST_F(UserStoreTest, NamesHaveOneTo1023BytesWithoutControlCharacters) {
    EXPECT_TRUE(UserStore::valid_name("Jörg"));
    EXPECT_TRUE(UserStore::valid_name(" "));
    EXPECT_TRUE(UserStore::valid_name(std::string(1023, 'x')));
    EXPECT_FALSE(UserStore::valid_name(std::string(1024, 'x')));
    for (const char* name : {"", "a\nb", "\x1f", "\x7f"}) EXPECT_FALSE(UserStore::valid_name(name));
}

}  // namespace
