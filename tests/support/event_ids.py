"""The identifiers of the events that this system writes into the recorder's log."""

TASK_CREATED, TASK_MODIFIED, TASK_DELETED, TASK_ENABLED, TASK_DISABLED = range(0x62040001,
                                                                               0x62040006)
BACKUP_STARTED, BACKUP_STOPPED, BACKUP_FORCED = range(0x23150001, 0x23150004)
START_REFUSED = 0x23170001

# Written by runs; those above are written by requests.
RUN_STARTED = 0x23150010
RUN_RESUMED = 0x23150011
RUN_SUCCEEDED = 0x23150012
RUN_FAILED = 0x23150013
FILE_NOT_COPIED = 0x23150015
CONNECTION_LOST = 0x23150016
RETENTION_PASS = 0x23150017
ROOM_MADE = 0x23150018
SHARE_FULL = 0x23150019
OWN_FOLDER_MADE = 0x2315001F


def is_of_a_run(event_id):
    return RUN_STARTED <= event_id < 0x23160000
