// What travels between page and recorder; made by wire_types.py from docs/openapi.json.

export type Time = number;

export type Day = string;

export type WireError = {
  error: {
    code: string;
    text: string;
    field?: string;
    retry_after?: number;
  };
};

export type Session = {
  user: string;
  level: number;
  expires: number;
  ends: number;
};

export type SignIn = {
  name: string;
  password: string;
};

export type Status = "success"
  | "new"
  | "wait"
  | "prepare_start"
  | "running"
  | "cancel"
  | "failed"
  | "prepare_stop";

export type Outcome = "success" | "failed" | "cancelled" | "interrupted";

export type BackupType = "BackupByLastDay" | "BackupByTimeRange";

export type ScheduleType = "daily" | "weekly" | "hour";

export type RecordingType = "recording" | "alarm" | "recording_and_alarm";

export type RecordingFormat = "mp4" | "ostra";

export type OverwriteType = "stop_overwrite" | "overwrite";

export type TaskSettings = {
  taskID: string;
  taskName: string;
  serverIP: string;
  port: number;
  username: string;
  destPath: string;
  chIdxList: Array<number>;
  backupType: BackupType;
  backupDays: number;
  backupStartDay: string;
  backupEndDay: string;
  backupStartTimeStamp: number;
  backupEndTimeStamp: number;
  backupImmediately: number;
  scheduleType: ScheduleType;
  scheduleWeekly: number;
  scheduleHour: number;
  scheduleMin: number;
  scheduleEveryHours: number;
  recordingType: RecordingType;
  recordingFormat: RecordingFormat;
  remoteKeepRec: number;
  remoteKeepRecDays: number;
  remoteOverwriteType: OverwriteType;
};

export type Amount = {
  files: number;
  bytes: number;
};

export type Progress = {
  percent: number;
  rate: number;
  seconds_left: number | null;
  files_done: number;
  files_left: number;
  bytes_done: number;
  bytes_left: number;
  message: string;
};

export type Attempt = {
  number: number;
  started: Time;
  ended: Time | null;
  outcome: Outcome | null;
  reason: string;
  remedy: string | null;
};

export type Task = {
  id: string;
  revision: string;
  name: string;
  enabled: boolean;
  status: Status;
  settings: TaskSettings;
  queue_place: number | null;
  progress: Progress | null;
  next_run: Time | null;
  last_success: Time | null;
  last_attempt: Attempt | null;
  overdue_since: Time | null;
  problems: Array<string>;
  remedies: Array<string>;
  missing: string | null;
  notes: Array<string>;
};

export type RecorderFacts = {
  name: string;
  version: string;
  zone: string;
  utc_offset: number;
};

export type Services = {
  backup: boolean;
  log: boolean;
};

export type Tasks = {
  time: number;
  recorder: RecorderFacts;
  services: Services;
  verdict: "safe" | "not_yet_safe" | "attention";
  needs_attention: boolean;
  problems: Array<string>;
  notes: Array<string>;
  tasks: Array<Task>;
};

export type Cause = "schedule" | "by hand" | "missed" | "resumed";

export type Run = {
  number: number;
  cause: Cause;
  started: Time;
  ended: Time | null;
  outcome: Outcome | null;
  reason: string;
  rate: number;
  planned: Amount;
  sent: Amount;
  kept: Amount;
  failed: Amount;
  removed: Amount;
};

export type Runs = {
  runs: Array<Run>;
  older: number | null;
};

export type RunDetails = {
  number: number;
  cause: Cause;
  started: Time;
  ended: Time | null;
  outcome: Outcome | null;
  reason: string;
  rate: number;
  planned: Amount;
  sent: Amount;
  kept: Amount;
  failed: Amount;
  removed: Amount;
  failures: Array<{
    file: string;
    reason: string;
  }>;
  rates: Array<[Time, number]>;
};

export type Days = {
  days: Array<{
    day: Day;
    recordings: boolean;
    alarms: boolean;
    copied_by: Array<string>;
  }>;
};

export type Schedule = {
  scheduleType: ScheduleType;
  scheduleHour: number;
  scheduleMin: number;
  scheduleWeekly: number;
  scheduleEveryHours: number;
};

export type Preview = {
  times: Array<Time>;
};

export type LogKind = "changes"
  | "requests"
  | "runs"
  | "failures"
  | "sign_ins"
  | "others";

export type LogEvent = {
  id: number;
  time: Time;
  user: string;
  address: string;
  kind: LogKind;
  task: string;
  text: string;
};

export type Log = {
  events: Array<LogEvent>;
  older: number | null;
};

export type ShareQuestion = unknown | unknown;

export type Shares = {
  shares: Array<{
    name: string;
    comment: string;
  }>;
};

export type Recorder = {
  version: string;
  zone: string;
  services: Services;
  channels: Array<{
    index: number;
    name: string;
    guid: string;
    state: "connected"
      | "disconnected"
      | "connecting"
      | "error"
      | "idle"
      | "unknown"
      | "removed";
    oldest: Day | null;
    unreadable: string | null;
  }>;
  rooms: Array<{
    destination: string;
    free: number;
    total: number;
    time: Time;
  }>;
  problems: Array<{
    kind: "run_failed"
      | "overdue"
      | "share_nearly_full"
      | "copies_differ"
      | "unknown";
    subject: string;
    since: Time;
    detail: string;
    remedy: string;
  }>;
  alerts_waiting: number;
};

export type AlertSetting = {
  key: "ca_file"
    | "mail_from"
    | "mail_password"
    | "mail_to"
    | "sendmail"
    | "smtp_password_file"
    | "smtp_security"
    | "smtp_server"
    | "smtp_user"
    | "web_hook"
    | "web_hook_secret";
  value: string | null;
  set: boolean;
  valid: boolean;
  default: string;
  changeable: boolean;
  meaning: string;
};

export type Alerts = {
  settings: Array<AlertSetting>;
  waiting: Array<{
    id: string;
    way: "mail" | "web_hook" | "unknown";
    recipient: string;
    subject: string;
    made: Time;
    attempts: number;
    next_attempt: Time | null;
    last_failure: string;
  }>;
  given_up: Array<{
    way: "mail" | "web_hook" | "unknown";
    recipient: string;
    time: Time;
    why: string;
  }>;
};

export type AlertChange = {
  mail_from?: string | null;
  mail_password?: string | null;
  mail_to?: string | null;
  smtp_security?: string | null;
  smtp_server?: string | null;
  smtp_user?: string | null;
  web_hook?: string | null;
  web_hook_secret?: string | null;
};

export type AlertTest = {
  receivers: Array<{
    way: "mail" | "web_hook" | "unknown";
    recipient: string;
    arrived: boolean;
    words: string;
  }>;
};

export type Success = {
  ret_code: 0;
  mesg: "Success.";
};

export type Failure = {
  ret_code: number;
  mesg: string;
};

export type NoSession = {
  retCode: number;
  mesg: "SID authorization fail.";
};

export type CodeAsText = {
  ret_code: string;
};

export type NoRoute = null;

export type TaskEntry = {
  taskID: string;
  taskName: string;
  serverIP: string;
  port: number;
  username: string;
  destPath: string;
  password: string;
  chIdxList: Array<number>;
  backupType: BackupType;
  backupDays: number;
  backupStartDay: string;
  backupEndDay: string;
  backupStartTimeStamp: number;
  backupEndTimeStamp: number;
  backupImmediately: number;
  scheduleType: ScheduleType;
  scheduleWeekly: number;
  scheduleHour: number;
  scheduleMin: number;
  scheduleEveryHours: number;
  recordingType: RecordingType;
  recordingFormat: RecordingFormat;
  remoteKeepRec: number;
  remoteKeepRecDays: number;
  remoteOverwriteType: OverwriteType;
  status: Status;
  enable: boolean;
  transferRate: string;
  finishRate: number;
  sequence: number;
  endTimeStamp: number;
  isFUSE: boolean;
};

export type TaskList = {
  ret_code: 0;
  mesg: "Success.";
  task_list: Array<TaskEntry>;
  max_parallel_task_num: number;
};

export type TaskStatus = {
  ret_code: 0;
  mesg: "Success.";
  status: string;
};

export type TaskBody = {
  taskName: string;
  serverIP: string;
  port: number;
  username: string;
  password: string;
  destPath: string;
  chIdxList: Array<number>;
  backupType: BackupType;
  backupDays?: number;
  backupStartDay?: Time;
  backupEndDay?: Time;
  backupImmediately: boolean;
  scheduleType: ScheduleType;
  scheduleWeekly: number;
  scheduleHour: number;
  scheduleMin: number;
  scheduleEveryHours: number;
  recordingType: RecordingType;
  recordingFormat: RecordingFormat;
  remoteKeepRec: boolean;
  remoteKeepRecDays?: number;
  remoteOverwriteType: OverwriteType;
};

export type Activation = {
  ret_code: 0;
  mesg: "Success.";
  has_running_task: boolean;
  isFUSE: boolean;
  taskID: string;
  taskName: string;
};

export type EventLog = {
  logs: Array<{
    id: number;
    time: string;
    timeStamp: Time;
    user: string;
    ip: string;
    application: string;
    event: string;
    task: string;
    eventID: string;
  }>;
  ret_code: 0;
  mesg: "Success.";
};

export type ServerTest = {
  ret_code: 0;
  mesg: "Success.";
  transferRate: string;
};

export type ShareList = {
  ret_code: 0;
  mesg: "Success.";
  shareList: Array<string>;
};

export type Fuse = {
  ret_code: 0;
  mesg: "Success.";
  isFUSE: boolean;
};

export type ChannelList = {
  ret_code: 0;
  mesg: "Success.";
  channel_list: Array<{
    earlyest_local_time: Day;
    earlyest_utc_times: number;
    guid: string;
    channel_index: number;
    ip: string;
    name: string;
    brand: string;
    model: string;
    connection_status: string;
  }>;
};
