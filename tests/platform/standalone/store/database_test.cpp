// Connections, statements and transactions: what each kind of connection promises.
#include "platform/standalone/store/database.h"

#include <sqlite3.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "platform/standalone/store/schema.h"
#include "tests/support/patience.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;
using namespace std::chrono_literals;
using Access = Database::Access;
using Durability = Database::Durability;

// As "PRAGMA synchronous" gives them.
constexpr int NORMAL = 1;
constexpr int EXTRA = 3;

constexpr std::array STEPS = {
    "CREATE TABLE parent (id INTEGER PRIMARY KEY);"
    "CREATE TABLE child (id INTEGER PRIMARY KEY, parent INTEGER REFERENCES parent ON DELETE "
    "CASCADE, text TEXT, number REAL)"};

long long ask(Database& database, const char* sql) {
    Statement row = database.prepare(sql);
    return row.step() ? row.integer(0) : -1;
}

class DatabaseTest : public testing::Test {
protected:
    DatabaseTest() { migrate(path_, STEPS); }

    long long rows(const char* table) const {
        Database database(path_, Access::reading);
        return ask(database, (std::string("SELECT count(*) FROM ") + table).c_str());
    }

    TemporaryFolder folder_;
    std::string path_ = folder_.path() + "/test.db";
};

TEST_F(DatabaseTest, WriterHasItsChangesOnDiskWhenACallReturnsUnlessToldOtherwise) {
    Database plain(path_, Access::writing);
    EXPECT_EQ(ask(plain, "PRAGMA synchronous"), EXTRA);
    Database full(path_, Access::writing, Durability::full);
    EXPECT_EQ(ask(full, "PRAGMA synchronous"), EXTRA);
    Database deferred(path_, Access::writing, Durability::deferred);
    EXPECT_EQ(ask(deferred, "PRAGMA synchronous"), NORMAL);
}

TEST_F(DatabaseTest, WritersLookAfterForeignKeys) {
    for (const Durability durability : {Durability::full, Durability::deferred}) {
        Database database(path_, Access::writing, durability);
        database.run("INSERT INTO parent (id) VALUES (1); INSERT INTO child (parent) VALUES (1)");
        EXPECT_THROW(database.run("INSERT INTO child (parent) VALUES (2)"), DatabaseError);
        database.run("DELETE FROM parent");
        EXPECT_EQ(rows("child"), 0);
    }
}

TEST_F(DatabaseTest, ReaderThatBeginsToWriteIsLikeAWriter) {
    Database database(path_, Access::reading);
    EXPECT_EQ(ask(database, "SELECT count(*) FROM parent"), 0);
    database.begin_to_write(Durability::full);
    EXPECT_EQ(ask(database, "PRAGMA synchronous"), EXTRA);
    EXPECT_THROW(database.run("INSERT INTO child (parent) VALUES (2)"), DatabaseError);
}

TEST_F(DatabaseTest, EveryConnectionWaitsFiveSecondsForAnother) {
    Database reader(path_, Access::reading);
    Database writer(path_, Access::writing);
    EXPECT_EQ(ask(reader, "PRAGMA busy_timeout"), 5000);
    EXPECT_EQ(ask(writer, "PRAGMA busy_timeout"), 5000);
}

TEST_F(DatabaseTest, OpensNoDatabaseThatIsNotThere) {
    const std::string other = folder_.path() + "/other.db";
    EXPECT_THROW(Database(other, Access::writing), DatabaseError);
    EXPECT_THROW(Database(other, Access::reading), DatabaseError);
    EXPECT_FALSE(std::filesystem::exists(other));
}

TEST_F(DatabaseTest, VersionIsAnotherOneBehindEachChangeByWhomever) {
    Database one(path_, Access::writing);
    Database other(path_, Access::writing);
    const auto before = one.version();
    EXPECT_EQ(one.version(), before);
    one.run("INSERT INTO parent VALUES (1)");
    const auto behind_own = one.version();
    EXPECT_NE(behind_own, before);
    other.run("DELETE FROM parent");
    const auto behind_other = one.version();
    EXPECT_NE(behind_other, behind_own);
    EXPECT_EQ(behind_other.own, behind_own.own);
    EXPECT_EQ(one.version(), behind_other);
}

TEST_F(DatabaseTest, RowsOfTheNamedTablesAreCountedAndNoOthers) {
    Database database(path_, Access::writing);
    database.run("INSERT INTO child VALUES (1, NULL, '', 0)");
    EXPECT_EQ(database.counted_rows(), 0);
    database.count_rows_of({"child"});
    database.run("INSERT INTO parent VALUES (1)");
    EXPECT_EQ(database.counted_rows(), 0);
    database.run("INSERT OR REPLACE INTO child VALUES (1, 1, '', 0)");
    EXPECT_EQ(database.counted_rows(), 1);
    database.run("UPDATE child SET number = 1 WHERE id = 1");
    EXPECT_EQ(database.counted_rows(), 2);
    database.run("DELETE FROM parent");
    EXPECT_EQ(database.counted_rows(), 3) << "what goes with a foreign key";
}

TEST_F(DatabaseTest, OpenTransactionIsUndoneWithItsOwner) {
    Database database(path_, Access::writing);
    {
        const Transaction transaction(database);
        database.run("INSERT INTO parent (id) VALUES (1)");
    }
    EXPECT_EQ(rows("parent"), 0);
    Transaction transaction(database);
    database.run("INSERT INTO parent (id) VALUES (1)");
    EXPECT_EQ(rows("parent"), 0);
    transaction.commit();
    EXPECT_EQ(rows("parent"), 1);
}

TEST_F(DatabaseTest, TransactionKeepsOtherWritersOutFromItsBeginning) {
    Database one(path_, Access::writing);
    Database other(path_, Access::writing);
    sqlite3_busy_timeout(other.handle(), 0);
    const Transaction transaction(one);
    try {
        other.run("INSERT INTO parent (id) VALUES (1)");
        FAIL() << "two writers at once";
    } catch (const DatabaseError& error) {
        EXPECT_EQ(error.code, SQLITE_BUSY);
    }
}

TEST_F(DatabaseTest, TransactionThatAnErrorEndedNeedsNoRollback) {
    Database database(path_, Access::writing);
    {
        const Transaction transaction(database);
        database.run("ROLLBACK");
    }
    database.run("INSERT INTO parent (id) VALUES (1)");
    EXPECT_EQ(rows("parent"), 1);
}

TEST_F(DatabaseTest, ValuesComeBackAsTheyWereBound) {
    Database database(path_, Access::writing);
    const std::string odd("a\0'%ü", 7);
    Statement insert = database.prepare("INSERT INTO child (id, text, number) VALUES (?, ?, ?)");
    insert.bind(1, 1LL << 60).bind(2, odd).bind_real(3, 0.5).step();
    EXPECT_EQ(database.last_insert_id(), 1LL << 60);
    insert.reset();
    insert.bind(1, 7).bind(2, std::string_view()).bind_null(3).step();
    EXPECT_EQ(database.changes(), 1);
    Statement row = database.prepare("SELECT id, text, number FROM child ORDER BY id DESC");
    ASSERT_TRUE(row.step());
    EXPECT_EQ(row.integer(0), 1LL << 60);
    EXPECT_EQ(row.text(1), odd);
    EXPECT_EQ(row.real(2), 0.5);
    ASSERT_TRUE(row.step());
    EXPECT_FALSE(row.is_null(1)) << "an empty text is a text";
    EXPECT_EQ(row.text(1), "");
    EXPECT_TRUE(row.is_null(2));
    EXPECT_FALSE(row.step());
}

TEST_F(DatabaseTest, StatementThatFailedCanBeRunAgain) {
    Database database(path_, Access::writing);
    Statement insert = database.prepare("INSERT INTO parent (id) VALUES (?)");
    insert.bind(1, 1).step();
    insert.reset();
    EXPECT_THROW(insert.step(), DatabaseError);
    insert.bind(1, 2).step();
    EXPECT_EQ(rows("parent"), 2);
    EXPECT_THROW(database.prepare("SELECT nothing FROM nowhere"), DatabaseError);
}

TEST_F(DatabaseTest, CallWaitsForAnotherWriterThatIsDoneSoon) {
    Database database(path_, Access::writing);
    database.limit_waiting(PATIENCE);
    Database other(path_, Access::writing);
    auto writer = std::make_unique<Transaction>(other);
    std::atomic<bool> done = false;
    std::thread waiting([&] {
        database.run("INSERT INTO parent (id) VALUES (1)");
        done = true;
    });
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(done);
    writer.reset();
    waiting.join();
    EXPECT_EQ(rows("parent"), 1);
}

/// How often this thread has waited: for a time, for a disk.
long waits_of_this_thread() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

/// Alone each of them would wait twice.
TEST_F(DatabaseTest, WaitsOfManyCallsAreLimitedTogether) {
    Database database(path_, Access::writing);
    database.limit_waiting(10ms);
    Database other(path_, Access::writing);
    const Transaction writer(other);
    const long before = waits_of_this_thread();
    const auto began = std::chrono::steady_clock::now();
    for (int call = 0; call < 100; ++call)
        EXPECT_THROW(database.run("INSERT INTO parent (id) VALUES (1)"), DatabaseError);
    const auto took = std::chrono::steady_clock::now() - began;
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(took).count() + 1;
    EXPECT_LE(waits_of_this_thread() - before, 2 * seconds + 20) << "the disk may take a few";
}

/// Has each wait of this thread take up to a tenth of a second longer, as on a busy machine.
class BusyMachine {
public:
    BusyMachine() { prctl(PR_SET_TIMERSLACK, 100'000'000); }
    ~BusyMachine() { prctl(PR_SET_TIMERSLACK, 0); }  // as it was
};

TEST_F(DatabaseTest, WhatABusyMachineMakesOfAWaitHardlyCounts) {
    Database database(path_, Access::writing);
    database.limit_waiting(30ms);
    Database other(path_, Access::writing);
    const Transaction writer(other);
    const BusyMachine machine;
    const long before = waits_of_this_thread();
    EXPECT_THROW(database.run("INSERT INTO parent (id) VALUES (1)"), DatabaseError);
    EXPECT_GE(waits_of_this_thread() - before, 3);
}

/// It takes two seconds then.
TEST_F(DatabaseTest, CallEndsOnABusyMachineToo) {
    Database database(path_, Access::writing);
    database.limit_waiting(200ms);
    Database other(path_, Access::writing);
    const Transaction writer(other);
    const BusyMachine machine;
    EXPECT_THROW(database.run("INSERT INTO parent (id) VALUES (1)"), DatabaseError);
}

constexpr char SUM[] = "sum";

/// Adds its second value to the number that the first one points to.
void add_to_sum(sqlite3_context*, int, sqlite3_value** values) {
    auto* sum = static_cast<long long*>(sqlite3_value_pointer(values[0], SUM));
    if (sum != nullptr) *sum += sqlite3_value_int64(values[1]);
}

TEST_F(DatabaseTest, FunctionTakesRowsToWhereItsPointerLeads) {
    Database database(path_, Access::writing);
    database.run("INSERT INTO parent (id) VALUES (3), (4)");
    database.define("add_to_sum", add_to_sum);
    long long sum = 0;
    Statement row = database.prepare("SELECT add_to_sum(?, id) FROM parent");
    row.bind_pointer(1, &sum, SUM);
    while (row.step()) continue;
    EXPECT_EQ(sum, 7);
    EXPECT_THROW(row.bind_pointer(2, &sum, SUM), DatabaseError);
}

TEST_F(DatabaseTest, FunctionIsDefinedAgainWhileRowsAreRead) {
    Database database(path_, Access::writing);
    database.run("INSERT INTO parent (id) VALUES (3), (4)");
    database.define("add_to_sum", add_to_sum);
    Statement row = database.prepare("SELECT id FROM parent");
    ASSERT_TRUE(row.step());
    EXPECT_NO_THROW(database.define("add_to_sum", add_to_sum));
}

TEST_F(DatabaseTest, LimitOutlivesTheMoveOfAConnection) {
    Database database(path_, Access::writing);
    database.limit_waiting(10ms);
    Database moved(std::move(database));
    Database other(path_, Access::writing);
    const Transaction writer(other);
    EXPECT_THROW(moved.run("INSERT INTO parent (id) VALUES (1)"), DatabaseError);
}

TEST_F(DatabaseTest, KnowsWhetherItsFileHasItsNameStill) {
    Database database(path_, Access::writing);
    EXPECT_FALSE(database.was_replaced());
    database.run("INSERT INTO parent (id) VALUES (1)");
    EXPECT_FALSE(database.was_replaced());
    std::filesystem::rename(path_, path_ + ".old");
    EXPECT_TRUE(database.was_replaced());
    migrate(path_, STEPS);
    EXPECT_TRUE(database.was_replaced());
    EXPECT_FALSE(Database(path_, Access::reading).was_replaced());
}

}  // namespace
