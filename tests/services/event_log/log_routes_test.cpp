// What the log service answers, from a store of its own.
#include "services/event_log/log_routes.h"

#include "platform/event_ids.h"
#include "platform/standalone/store/event_store.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace services;

constexpr long long MARCH = 1709297110999;  // 2024-03-01 12:45:10.999 UTC
constexpr char HEADER[] = "Time,Time stamp,User,Address,Application,Event,Task\r\n";

class LogRoutes : public StateTest {
protected:
    LogRoutes() {
        setenv("TZ", "UTC0", 1);
        tzset();
    }
    ~LogRoutes() override {
        unsetenv("TZ");
        tzset();
    }

    static void append(events::Id id, const std::string& task, int count = 1) {
        standalone::Database database(standalone::event_database_path(),
                                      standalone::Database::Access::writing);
        database.run("PRAGMA synchronous=OFF");
        standalone::EventStore store(database);
        standalone::Event event;
        event.time_ms = MARCH;
        event.event_id = id;
        event.user = "admin";
        event.ip = "10.0.0.7";
        event.arguments = {events::APPLICATION, task};
        for (int at = 0; at < count; ++at) store.append(event);
    }

    static std::string json(std::map<std::string, std::string> parameters = {}) {
        return json_log({std::move(parameters), ""}).body;
    }

    static std::string csv(std::map<std::string, std::string> parameters = {}) {
        return csv_log({std::move(parameters), ""}).body;
    }

    static std::string counts(long long items, long long total) {
        return R"({"code":0,"mesg":"Success.","responseItems":)" + std::to_string(items) +
               R"(,"totalItems":)" + std::to_string(total) + ",";
    }
};

TEST_F(LogRoutes, AnEntryTellsEverything) {
    append(events::TASK_CREATED, "Doors");
    EXPECT_EQ(json(), counts(1, 1) + R"("logs":[{"id":1,"time":"2024-03-01T12:45:10+00:00",)"
                                     R"("timeStamp":1709297110,"user":"admin","ip":"10.0.0.7",)"
                                     R"("application":"Recording Backup","event":"Task created",)"
                                     R"("task":"Doors","eventID":"62040001"}]})");
    EXPECT_EQ(csv(), HEADER + std::string("2024-03-01T12:45:10+00:00,1709297110,admin,10.0.0.7,"
                                          "Recording Backup,Task created,Doors\r\n"));
}

TEST_F(LogRoutes, SaysWhatItIs) {
    EXPECT_EQ(json_log({}).content_type, "application/json");
    EXPECT_EQ(csv_log({}).content_type, "text/csv; charset=utf-8");
}

TEST_F(LogRoutes, GivesTheNewestOfTheKindsAskedFor) {
    append(events::RUN_STARTED, "first");
    append(events::TASK_CREATED, "second");
    append(events::ACTIVATION_REFUSED, "third");
    append(events::RUN_FAILED, "fourth");
    const std::string text = csv({{"sub_type", "8981,8983"}, {"max_results", "2"}});
    EXPECT_LT(text.find("fourth"), text.find("third"));
    EXPECT_EQ(text.find("second"), std::string::npos);
    EXPECT_EQ(text.find("first"), std::string::npos);
    EXPECT_TRUE(json({{"sub_type", "8981,8983"}, {"max_results", "2"}}).starts_with(counts(2, 3)));
    EXPECT_TRUE(json({{"sub_type", "1"}}).starts_with(counts(0, 0)));
}

TEST_F(LogRoutes, GivesAHundredUnlessToldOtherwise) {
    append(events::RUN_STARTED, "x", 101);
    EXPECT_TRUE(json().starts_with(counts(100, 101)));
    EXPECT_TRUE(json({{"max_results", "101"}}).starts_with(counts(101, 101)));
    EXPECT_TRUE(json({{"max_results", "1"}}).starts_with(counts(1, 101)));
}

TEST_F(LogRoutes, RefusesWhatIsNoQuery) {
    const auto status_of = [](HttpReply (*route)(const HttpRequest&), const HttpRequest& request) {
        try {
            route(request);
            return 200;
        } catch (const HttpError& error) {
            return error.status;
        }
    };
    for (const auto& route : {json_log, csv_log}) {
        EXPECT_EQ(status_of(route, {{{"sub_type", "x"}}, ""}), 400);
        EXPECT_EQ(status_of(route, {{{"max_results", "0"}}, ""}), 400);
        EXPECT_EQ(status_of(route, {{{"max_results", "10000"}}, ""}), 200);
    }
}

TEST_F(LogRoutes, AnAbsentLogIsEmpty) {
    std::filesystem::remove(standalone::event_database_path());
    EXPECT_EQ(json(), counts(0, 0) + R"("logs":[]})");
    EXPECT_EQ(csv(), HEADER);
    EXPECT_FALSE(std::filesystem::exists(standalone::event_database_path()));
}

}  // namespace
