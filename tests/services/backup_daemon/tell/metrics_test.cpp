// The text of the daemon's figures: which there are, and that no name breaks out of its place.
#include "services/backup_daemon/tell/metrics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/standalone/store/utf8.h"

namespace {

using namespace services;
using standalone::RunOutcome;
using testing::HasSubstr;
using testing::Not;

TaskMetrics task(const std::string& task_id, const std::string& name) {
    TaskMetrics task;
    task.task_id = task_id;
    task.name = name;
    return task;
}

std::string text_of(const TaskMetrics& task) {
    Metrics metrics;
    metrics.tasks = {task};
    return metrics_text(metrics);
}

/// The sample of a family that is of task 3, "Doors".
std::string sample(const std::string& name, const std::string& value) {
    return "\nrecorder_backup_" + name + "{task_id=\"3\",task=\"Doors\"} " + value + "\n";
}

TEST(MetricsText, OfADaemonWithoutTasksHasItsOwnFigures) {
    Metrics metrics;
    metrics.waiting = 2;
    metrics.lanes = 3;
    metrics.alerts = 4;
    metrics.problems = 5;
    metrics.store_errors = 6;
    metrics.given_up = 7;
    const std::string text = metrics_text(metrics);
    EXPECT_THAT(text, HasSubstr("# TYPE recorder_backup_waiting_tasks gauge\n"
                                "recorder_backup_waiting_tasks 2\n"));
    EXPECT_THAT(text, HasSubstr("\nrecorder_backup_lanes 3\n"));
    EXPECT_THAT(text, HasSubstr("\nrecorder_backup_waiting_alerts 4\n"));
    EXPECT_THAT(text, HasSubstr("\nrecorder_backup_open_problems 5\n"));
    EXPECT_THAT(text, HasSubstr("# TYPE recorder_backup_given_up_alerts_total counter\n"
                                "recorder_backup_given_up_alerts_total 7\n"));
    EXPECT_THAT(text, HasSubstr("# TYPE recorder_backup_store_errors_total counter\n"
                                "recorder_backup_store_errors_total 6\n"));
    EXPECT_THAT(text, HasSubstr("\nrecorder_backup_running_runs 0\n"));
    EXPECT_THAT(text, Not(HasSubstr("task_id")));
    EXPECT_THAT(text, Not(HasSubstr("recorder_backup_runs_total")));
}

TEST(MetricsText, OfATaskThatHasNeverRunHasCountersAtZero) {
    const std::string text = text_of(task("3", "Doors"));
    for (const char* name : {"sent_bytes_total", "sent_files_total", "failed_files_total",
                             "retries_total", "task_enabled", "overdue", "last_run_failed"})
        EXPECT_THAT(text, HasSubstr(sample(name, "0")));
    for (const char* outcome : {"success", "failed", "cancelled", "interrupted"})
        EXPECT_THAT(text, HasSubstr(std::string("\nrecorder_backup_runs_total{task_id=\"3\","
                                                "task=\"Doors\",outcome=\"") +
                                    outcome + "\"} 0\n"));
    for (const char* name : {"last_success", "last_run_outcome", "run_progress", "run_bytes"})
        EXPECT_THAT(text, Not(HasSubstr(name)));
}

TEST(MetricsText, HasAllOfATask) {
    TaskMetrics doors = task("3", "Doors");
    doors.enabled = doors.overdue = true;
    doors.success_time = 1795354050;
    doors.last_outcome = RunOutcome::interrupted;
    doors.failed = true;
    doors.total = {.runs = {1, 2, 3, 4}, .sent = {5, 6'000'000'000'001}, .files_failed = 7};
    doors.retries = 8;
    doors.run = {.percent = 12.5, .rate = 1234.5};
    const std::string text = text_of(doors);
    EXPECT_THAT(text, HasSubstr(sample("task_enabled", "1")));
    EXPECT_THAT(text, HasSubstr(sample("overdue", "1")));
    EXPECT_THAT(text, HasSubstr(sample("last_success_timestamp_seconds", "1795354050")));
    EXPECT_THAT(text, HasSubstr("\nrecorder_backup_last_run_outcome{task_id=\"3\",task=\"Doors\","
                                "outcome=\"interrupted\"} 1\n"));
    EXPECT_THAT(text, HasSubstr(sample("last_run_failed", "1")));
    EXPECT_THAT(text, HasSubstr("outcome=\"cancelled\"} 3\n"));
    EXPECT_THAT(text, HasSubstr(sample("sent_files_total", "5")));
    EXPECT_THAT(text, HasSubstr(sample("sent_bytes_total", "6000000000001")));
    EXPECT_THAT(text, HasSubstr(sample("failed_files_total", "7")));
    EXPECT_THAT(text, HasSubstr(sample("retries_total", "8")));
    EXPECT_THAT(text, HasSubstr(sample("run_progress_ratio", "0.125")));
    EXPECT_THAT(text, HasSubstr(sample("run_bytes_per_second", "1234.5")));
    EXPECT_THAT(text, HasSubstr("\nrecorder_backup_running_runs 1\n"));
}

TEST(MetricsText, HasTheRoomOfEachPlace) {
    Metrics metrics;
    metrics.shares = {
        {.share = "//nas:445/backup", .free = 10, .total = 200, .time = 1795354050},
        {.share = "//nas:445/\xff"},
    };
    const std::string text = metrics_text(metrics);
    EXPECT_THAT(text, HasSubstr("# TYPE recorder_backup_share_free_bytes gauge\n"
                                "recorder_backup_share_free_bytes{share="
                                "\"//nas:445/backup\"} 10\n"));
    EXPECT_THAT(text, HasSubstr("\nrecorder_backup_share_room_timestamp_seconds{share="
                                "\"//nas:445/backup\"} 1795354050\n"));
    EXPECT_THAT(text, HasSubstr("\nrecorder_backup_share_size_bytes{share="
                                "\"//nas:445/backup\"} 200\n"));
    EXPECT_TRUE(standalone::is_utf8(text));
}

TEST(MetricsText, KeepsAnyNameInItsPlace) {
    const std::string name = "a\"} 1\nrecorder_backup_lanes 99\\\n\xff\xc3";
    const std::string text = text_of(task("3", name));
    EXPECT_THAT(text, HasSubstr("\nrecorder_backup_overdue{task_id=\"3\",task=\"a\\\"} 1\\n"
                                "recorder_backup_lanes 99\\\\\\n\xEF\xBF\xBD\xEF\xBF\xBD\"} 0\n"));
    EXPECT_THAT(text, Not(HasSubstr("\nrecorder_backup_lanes 99")));
    EXPECT_TRUE(standalone::is_utf8(text));
}

}  // namespace
