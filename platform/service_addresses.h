// Where the recorder's local services are asked, for those who serve and those who ask.
#pragma once

/// Services listen on this address alone. It is the recorder itself, too, as the origin of events
/// that no client caused.
inline constexpr char LOOPBACK[] = "127.0.0.1";

/// How long clients wait for a service's answer.
inline constexpr long ANSWER_SECONDS = 5;

// The backup daemon: notices (PUT) and queries (GET); test alerts, to be begun (PUT) and asked for
// (GET).
inline constexpr int NOTICE_PORT = 10205;
inline constexpr char NOTICE_PATH[] = "/databackupService/notify";
inline constexpr char ALERT_TEST_PATH[] = "/databackupService/alertTest";

// The backup daemon's configuration service: deleting a task (DELETE).
inline constexpr int TASK_PORT = 10141;
inline constexpr char TASK_PATH[] = "/cfg/DataBackupService";

// The backup daemon's figures for monitoring systems (GET).
inline constexpr int METRICS_PORT = 10206;
inline constexpr char METRICS_PATH[] = "/metrics";

// The log service: events as JSON and as CSV (GET).
inline constexpr int LOG_PORT = 10150;
inline constexpr char LOG_PATH[] = "/logs/logs";
inline constexpr char LOG_FILE_PATH[] = "/logs/logs/file";
