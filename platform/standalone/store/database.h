// Handles for SQLite: a connection, a prepared statement, a transaction.
#pragma once

#include <chrono>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;
struct sqlite3_context;
struct sqlite3_value;

namespace standalone {

/// An SQLite call failed. what() is SQLite's own message.
class DatabaseError : public std::runtime_error {
public:
    DatabaseError(const std::string& message, int sqlite_code);
    /// How many calls of this process have failed so far.
    static long long count();
    /// Whether other connections held the database for longer than the busy time-out.
    bool is_busy() const;
    /// Whether it may go by itself: somebody holds the database, the disk is full or fails. What is
    /// damaged or wrong stays so.
    bool may_pass() const;
    int code;  ///< SQLite's primary result code (sqlite.org/rescode.html)
};

/// A prepared statement. Parameters are numbered from 1, columns from 0.
class Statement {
public:
    Statement(sqlite3* connection, std::string_view sql);
    Statement& bind(int parameter, long long value);
    Statement& bind(int parameter, std::string_view value);
    Statement& bind_real(int parameter, double value);
    Statement& bind_null(int parameter);
    /// Something that SQL hands to a function, which takes it by the same `type`, a literal.
    Statement& bind_pointer(int parameter, void* pointer, const char* type);
    /// @return true while there is a row
    bool step();
    /// Makes the statement ready to be run again; parameters keep their values.
    void reset();
    long long integer(int column);
    double real(int column);
    std::string text(int column) { return std::string(view(column)); }
    /// A text where SQLite has it: until the next step().
    std::string_view view(int column);
    bool is_null(int column);

private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const;
    };
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

/// A connection. It belongs to one thread. A call waits up to USUAL_WAIT for others that hold the
/// database.
class Database {
public:
    static constexpr std::chrono::milliseconds USUAL_WAIT{5000};

    /// What the connection is for.
    enum class Access {
        reading,  ///< foreign keys are not looked after, which spares short requests the set-up
        writing,
    };

    /// When a writing connection's changes are on disk. They are whole transactions either way.
    enum class Durability {
        full,      ///< when the call that made them returns
        deferred,  ///< later: a power cut may take the newest ones; for Journal::write_ahead alone
    };

    /// Opens an existing database; creating one is migrate()'s job (schema.h).
    /// @param durability has no meaning for one that reads
    /// @throws DatabaseError
    Database(const std::string& path, Access access, Durability durability = Durability::full);
    /// Makes a connection that reads one that writes; outside of transactions.
    /// @throws DatabaseError
    void begin_to_write(Durability durability);
    Statement prepare(std::string_view sql);
    /// A function that SQL calls with values of a row (sqlite.org/appfunc.html).
    using Function = void (*)(sqlite3_context*, int, sqlite3_value**);
    /// Has SQL call the function by this name, with any number of values. A connection takes one;
    /// the same once more is no work.
    void define(const char* name, Function function);
    /// Runs one or more statements without results.
    void run(const char* sql);
    long long last_insert_id();
    /// Rows that the last statement changed.
    int changes();
    /// What a connection knows a content of the database by.
    struct Version {
        long long others = 0;  ///< another one behind each change by another connection
        long long own = 0;     ///< rows that this one has changed since it was opened

        bool operator==(const Version&) const = default;
    };
    /// Another one than ever before when rows have been changed since the last call, by whomever.
    /// Who keeps what was read asks before reading, outside of transactions and while no statement
    /// has rows left: what is rolled back has changed nothing, and others' changes show later.
    /// @throws DatabaseError
    Version version();
    /// Counts from now on rows of these tables that this connection changes; tables WITHOUT ROWID
    /// have none to count.
    void count_rows_of(std::set<std::string> tables);
    /// How many so far, those that were rolled back included.
    long long counted_rows() const;
    /// Whether its file has its name no more: what is stored from now on is found by nobody who
    /// opens the database anew.
    bool was_replaced();
    /// Gives back the memory of pages that were read: for one who has taken what there was to take.
    void release_pages();
    /// From now on the waits of all calls within a second add up to `longest` and no more: for a
    /// thread that must answer others meanwhile. A call that comes when they are used up does not
    /// wait at all. Time in which the machine let this thread do nothing hardly counts.
    void limit_waiting(std::chrono::milliseconds longest);
    sqlite3* handle() { return connection_.get(); }

private:
    struct Close {
        void operator()(sqlite3* connection) const;
    };
    struct Waits;
    Function defined_ = nullptr;
    struct Counted;
    // These outlive the connection, which may ask them.
    std::shared_ptr<Waits> waits_;
    std::shared_ptr<Counted> counted_;
    std::unique_ptr<sqlite3, Close> connection_;
};

/// BEGIN IMMEDIATE, or BEGIN for one who only reads, all from one moment; rolled back unless
/// commit() was called.
class Transaction {
public:
    explicit Transaction(Database& database, Database::Access access = Database::Access::writing);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void commit();

private:
    Database& database_;
    bool open_ = true;
};

}  // namespace standalone
