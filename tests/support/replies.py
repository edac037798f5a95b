"""What the CGI program answers: the texts and result codes that many tests expect."""

SUCCESS = '{ "ret_code": 0, "mesg": "Success." }'

INPUT_FORMAT_ERROR = 0x950A0004
PARSE_FAIL = 0x950A0005
INVALID_VALUE = 0x950A0006
COMMAND_FAILED = 0x950A0008
PERMISSION_DENIED = 0x950A000A
CONNECT_ERROR = 0x950A000B
UNKNOWN_ERROR = 0x950A000C
RUNNING_INFO_ERROR = 0x950A0021
CHANGE_STATUS_ERROR = 0x950A0022
WAITING_SEQUENCE_ERROR = 0x950A0023

# The configuration store's refusals, which pass through.
STORE_BAD_TEXT = 3
STORE_BAD_MEMBER = 4
STORE_UNKNOWN_TASK = 5


def error(code, message="Insert task to database fail."):
    """An error reply; codes are printed as doubles."""
    return '{ "ret_code": %d.0, "mesg": "%s" }' % (code, message)
