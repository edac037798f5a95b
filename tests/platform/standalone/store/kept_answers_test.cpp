// The registry's answers that are kept beside it: never others than it would give itself.
#include "platform/standalone/store/kept_answers.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "platform/known_settings.h"
#include "platform/nvrcfg.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/file_handle.h"
#include "platform/standalone/store/folder_reader.h"
#include "platform/standalone/store/registry_answers.h"
#include "platform/standalone/store/user_store.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;

class KeptAnswersTest : public StateTest {
protected:
    std::optional<std::string> ask(const std::string& question, std::optional<std::string> answer) {
        return registry_answer(Question::key, question, [&] {
            ++asked_;
            return answer;
        });
    }

    /// Whether the registry was asked.
    bool asks(const std::string& question, const std::string& answer = "yes") {
        const int before = asked_;
        EXPECT_EQ(ask(question, answer), answer);
        return asked_ > before;
    }

    void write_registry(const std::string& value = "1") {
        KeyValueStore(database_).set("log", "keep_days", value);
    }

    std::string answers() { return read_file(registry_answers_path()); }

    void put_answers(const std::string& bytes) {
        std::ofstream(registry_answers_path(), std::ios::binary | std::ios::trunc) << bytes;
    }

    Database database_{registry_database_path(), Database::Access::writing};
    int asked_ = 0;
};

TEST_F(KeptAnswersTest, AnAnswerIsAskedForOnce) {
    EXPECT_TRUE(asks("a", "of a"));
    EXPECT_FALSE(asks("a", "of a"));
    EXPECT_TRUE(asks("b", ""));
    EXPECT_FALSE(asks("b", ""));
    EXPECT_FALSE(asks("a", "of a"));
}

TEST_F(KeptAnswersTest, EachChangeOfTheRegistryHasItAskedAgain) {
    for (int change = 0; change < 300; ++change) {
        EXPECT_TRUE(asks("a", std::to_string(change))) << change;
        EXPECT_FALSE(asks("a", std::to_string(change))) << change;
        write_registry(std::to_string(change));
    }
}

TEST_F(KeptAnswersTest, NobodyChangesWhatAnAnswerIsKeptOf) {
    database_.limit_waiting(std::chrono::milliseconds(0));
    const auto answer = [this] {
        const auto value = config_keys().get("log", "keep_days");
        EXPECT_THROW(write_registry(), DatabaseError);
        return std::optional(value.value_or("none"));
    };
    EXPECT_EQ(registry_answer(Question::key, "a", answer), "none");
    EXPECT_FALSE(asks("a", "none"));
    write_registry();
    EXPECT_TRUE(asks("a", "1"));
}

TEST_F(KeptAnswersTest, WhatAnOldConnectionReadsIsNotKeptOfTheRegistryInItsPlace) {
    write_registry("1");
    const std::string path = registry_database_path();
    std::filesystem::copy_file(path, path + ".new");
    EXPECT_EQ(known_key("log", "keep_days"), "1");
    {
        Database other(path + ".new", Database::Access::writing);
        KeyValueStore(other).set("log", "keep_days", "2");
    }
    std::filesystem::rename(path + ".new", path);
    EXPECT_EQ(known_key("log", "keep_days"), "1");
    std::thread([] { EXPECT_EQ(known_key("log", "keep_days"), "2"); }).join();
}

TEST_F(KeptAnswersTest, AnotherRegistryInItsPlaceIsAsked) {
    EXPECT_TRUE(asks("a"));
    const std::string path = registry_database_path();
    std::filesystem::copy_file(path, path + ".new");
    std::filesystem::rename(path + ".new", path);
    EXPECT_TRUE(asks("a"));
    std::thread([this] {  // with a connection of its own
        EXPECT_TRUE(asks("a"));
        EXPECT_FALSE(asks("a"));
    })
        .join();
}

TEST_F(KeptAnswersTest, AnotherContentOfItsFileIsAsked) {
    EXPECT_TRUE(asks("a"));
    const FileHandle file(open(registry_database_path().c_str(), O_WRONLY));
    const char byte = 'S';  // as the file begins
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(fstat(file.get(), &before), 0);
    do {  // change times may be as coarse as the kernel's ticks
        ASSERT_EQ(pwrite(file.get(), &byte, 1, 0), 1);
        ASSERT_EQ(fstat(file.get(), &after), 0);
    } while (standalone::nanoseconds(after.st_ctim) == standalone::nanoseconds(before.st_ctim));
    EXPECT_TRUE(asks("a"));
    EXPECT_FALSE(asks("a"));
}

TEST_F(KeptAnswersTest, AnotherChangeCounterIsEnoughToHaveItAsked) {
    const FileHandle file(open(registry_database_path().c_str(), O_RDWR));
    void* mapped = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    ASSERT_NE(mapped, MAP_FAILED);
    auto* counter = static_cast<volatile unsigned char*>(mapped) + 24;
    // Only the first change of a page that is clean gives the file another change time.
    *counter = 1;
    EXPECT_TRUE(asks("a", "first"));
    EXPECT_FALSE(asks("a", "first"));
    *counter = 2;
    EXPECT_TRUE(asks("a", "second"));
    munmap(mapped, 4096);
}

TEST_F(KeptAnswersTest, WithAWriteAheadLogNothingIsKept) {
    database_.run("PRAGMA journal_mode=WAL");
    for (const std::string stored : {"1", "2", "3"}) {
        write_registry(stored);
        EXPECT_TRUE(asks("a", stored));
        EXPECT_TRUE(asks("a", stored));
    }
    database_.run("PRAGMA journal_mode=DELETE");
    EXPECT_TRUE(asks("a"));
    EXPECT_FALSE(asks("a"));
}

/// Whether another process is kept from writing.
bool is_held() {
    const pid_t child = fork();
    if (child == 0) {
        const int file = open(registry_database_path().c_str(), O_RDWR);
        struct flock lock {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        lock.l_start = 0x40000000;  // sqlite.org/src, PENDING_BYTE; its other locks follow
        lock.l_len = 512;
        _exit(file >= 0 && fcntl(file, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0;
}

TEST_F(KeptAnswersTest, WhoAsksKeepsTheLocksOfItsProcess) {
    const std::string path = registry_database_path();
    std::filesystem::copy_file(path, path + ".other");
    EXPECT_FALSE(is_held());
    const Transaction transaction(database_);
    EXPECT_TRUE(asks("a"));
    EXPECT_FALSE(asks("a"));
    EXPECT_TRUE(is_held());
    std::filesystem::rename(path, path + ".held");
    std::filesystem::rename(path + ".other", path);
    EXPECT_TRUE(asks("a"));
    std::filesystem::rename(path + ".held", path);
    EXPECT_TRUE(is_held());
}

TEST_F(KeptAnswersTest, WithoutARegistryNothingIsKept) {
    EXPECT_TRUE(asks("a"));
    std::filesystem::rename(registry_database_path(), registry_database_path() + ".away");
    EXPECT_TRUE(asks("a"));
    EXPECT_TRUE(asks("a"));
    std::filesystem::rename(registry_database_path() + ".away", registry_database_path());
}

TEST_F(KeptAnswersTest, NoAnswerIsNotKept) {
    EXPECT_FALSE(ask("a", {}));
    EXPECT_FALSE(std::filesystem::exists(registry_answers_path()));
    EXPECT_TRUE(asks("a"));
}

TEST_F(KeptAnswersTest, ALongAnswerIsNotKeptAndTakesNobodysPlace) {
    EXPECT_TRUE(asks("a", "short"));
    for (const std::size_t length : {400, 500, 600, 100'000})
        EXPECT_TRUE(asks(std::string(length, 'q'), std::string(length, 'x')));
    EXPECT_FALSE(asks("a", "short"));
}

TEST_F(KeptAnswersTest, QuestionsThatShareASlotGetTheirOwnAnswers) {
    for (int round = 0; round < 2; ++round)
        for (int number = 0; number < 1000; ++number)
            EXPECT_EQ(ask(std::to_string(number), "of " + std::to_string(number)),
                      "of " + std::to_string(number));
    EXPECT_LE(std::filesystem::file_size(registry_answers_path()), 2 * 256U * 512);
}

TEST_F(KeptAnswersTest, HoweverManySessionsThereAreASwitchKeepsItsPlace) {
    EXPECT_TRUE(asks("a"));
    for (int number = 0; number < 1000; ++number)
        registry_answer(Question::session, std::to_string(number),
                        [] { return std::optional<std::string>("somebody"); });
    EXPECT_FALSE(asks("a"));
}

TEST_F(KeptAnswersTest, NoTwoSwitchesOrNumbersShareASlot) {
    std::vector<std::string> keys;
    for (const KnownSetting& setting : KNOWN_SETTINGS)
        if (setting.kind == SettingKind::on_off || setting.kind == SettingKind::number)
            keys.push_back(std::string(setting.section) + '\0' + std::string(setting.key));
    EXPECT_EQ(keys.size(), 5U);
    for (const std::string& key : keys) EXPECT_TRUE(asks(key)) << key;
    for (const std::string& key : keys) EXPECT_FALSE(asks(key)) << key;
}

TEST_F(KeptAnswersTest, AnyDamageHasTheRegistryAsked) {
    EXPECT_TRUE(asks("a", "of a"));
    const std::string whole = answers();
    const std::size_t slot = whole.find_first_not_of('\0');
    for (std::size_t at = slot; at < whole.size(); at += 7) {
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 1);
        put_answers(damaged);
        EXPECT_TRUE(asks("a", "of a")) << at;
    }
    for (std::size_t length = slot; length < whole.size(); length += 11) {
        put_answers(whole.substr(0, length));
        EXPECT_TRUE(asks("a", "of a")) << length;
    }
}

TEST_F(KeptAnswersTest, WhatCannotBeWrittenIsAskedForEachTime) {
    std::filesystem::create_directory(registry_answers_path());
    EXPECT_TRUE(asks("a"));
    EXPECT_TRUE(asks("a"));
    std::filesystem::remove(registry_answers_path());
    std::filesystem::create_symlink(state_.folder() + "/elsewhere", registry_answers_path());
    EXPECT_TRUE(asks("a"));
    EXPECT_FALSE(std::filesystem::exists(state_.folder() + "/elsewhere"));
}

TEST_F(KeptAnswersTest, OnlyTheOwnerMayReadThem) {
    EXPECT_TRUE(asks("a"));
    struct stat found {};
    ASSERT_EQ(stat(registry_answers_path().c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0600U);
}

TEST_F(KeptAnswersTest, ASessionEndsWithAllThatEndsIt) {
    UserStore users(database_);
    SessionStore sessions(database_);
    const std::vector<std::function<void(const std::string&)>> ends = {
        [&](const std::string& sid) { sessions.close(sid); },
        [&](const std::string&) { users.set_password("anna", "other"); },
        [&](const std::string&) { users.remove("anna"); }};
    for (const auto& end : ends) {
        users.add({"anna", 11}, "secret");
        const std::string sid = sessions.open("anna", 5);
        for (int time = 0; time < 3; ++time) {
            const auto session = known_session(sid);
            ASSERT_TRUE(session);
            EXPECT_EQ(session->user.name, "anna");
            EXPECT_EQ(session->user.level, 11U);
            EXPECT_EQ(session->ends_ms, session->expires_ms);
        }
        end(sid);
        EXPECT_FALSE(known_session(sid));
        EXPECT_FALSE(known_session(sid));
    }
}

TEST_F(KeptAnswersTest, SwitchesAndNumbersAreKeptAndTextsAreNot) {
    const auto value = [](const char* section, const char* key) {
        std::string text = "none";
        int error = 0;
        __nvrcfg_get_key_value("test", 0, section, key, text, &error);
        return text;
    };
    KeyValueStore keys(database_);
    for (const std::string stored : {"30", "", "31"}) {
        keys.set("log", "keep_days", stored);
        EXPECT_EQ(value("log", "keep_days"), stored);
        EXPECT_EQ(value("log", "keep_days"), stored);
    }
    EXPECT_NE(answers().find("=31"), std::string::npos);
    keys.unset("log", "keep_days");
    EXPECT_EQ(value("log", "keep_days"), "none");
    EXPECT_EQ(value("log", "keep_days"), "none");
    keys.set("alert", "mail_password", "guess me");
    EXPECT_EQ(value("alert", "mail_password"), "guess me");
    EXPECT_EQ(value("alert", "mail_password"), "guess me");
    EXPECT_EQ(answers().find("guess"), std::string::npos);
}

/// Counts in the registry, a hundred pages a time.
void count_on() {
    Database database(registry_database_path(), Database::Access::writing);
    // Pages are written before the end, too, and nobody waits for the disk: the machine goes on.
    database.run("PRAGMA cache_size = 10; PRAGMA synchronous = OFF");
    for (;;) {
        Transaction transaction(database);
        database.run(
            "UPDATE config_key SET value = value + 1 WHERE section = 'test';"
            "UPDATE config_key SET value = randomblob(3000) WHERE section = 'filling'");
        transaction.commit();
        usleep(3000);  // readers have their turn
    }
}

/// A process that does so until it is killed.
pid_t start_counting() {
    const pid_t child = fork();
    if (child != 0) return child;
    try {
        count_on();
    } catch (const DatabaseError& error) {
        std::fprintf(stderr, "the writer: %s\n", error.what());
    }
    _exit(1);
}

TEST_F(KeptAnswersTest, BesideWritersThatAreKilledAnAnswerIsNeverOlderThanTheRegistry) {
    database_.run(
        "INSERT INTO config_key VALUES ('test', 'count', 0);"
        "WITH RECURSIVE n(i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 100) "
        "INSERT INTO config_key SELECT 'filling', i, randomblob(3000) FROM n");
    const auto count = [] { return std::stoll(config_keys().get("test", "count").value()); };
    int asked = 0;
    const auto answer = [&] {
        return std::stoll(*registry_answer(Question::key, "count", [&] {
            ++asked;
            return std::optional(std::to_string(count()));
        }));
    };
    std::minstd_rand random(1);
    int looks = 0;
    for (int round = 0; round < 60; ++round) {
        const pid_t writer = start_counting();
        const long long enough = count() + static_cast<long long>(random() % 4);
        for (long long least = count(); least < enough; least = count(), ++looks) {
            const long long told = answer();
            ASSERT_LE(least, told);
            ASSERT_LE(told, count());
        }
        usleep(static_cast<useconds_t>(random() % 8000));
        kill(writer, SIGKILL);
        waitpid(writer, nullptr, 0);
        // What the killed one has left half written is taken back by whoever reads next, and that
        // may be the one who asks for an answer.
        const long long told = answer();
        ASSERT_EQ(told, count());
    }
    EXPECT_GT(asked, 60);
    EXPECT_GT(looks, asked) << "nothing was kept";
}

}  // namespace
