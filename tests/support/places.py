"""Where things are: the source tree, the build folder and the recorder's own fixed paths."""
import os
from pathlib import Path

SOURCE = Path(os.environ["RECORDER_SOURCE"])
BUILD = Path(os.environ["RECORDER_BUILD"])
PROGRAMS = BUILD / "bin"
BUNDLE = BUILD / "console/page/bundle"  # the console's page, as it is installed

STATE = Path("/var/lib/recorder")
LOGS = STATE / "logs"
STORAGE = Path("/storage")
CGI = Path("/home/httpd/cgi-bin/recording_backup.cgi")
CONSOLE = CGI.parent / "console.cgi"
PAGE = Path("/home/httpd/recorder/share/recorder/console")
DEBUG_FILE = Path("/Zdbglog/.cgi_log/.cgi.log")
CREDENTIALS = Path("/tmp/.recording_backup_mnt_info")  # of the share that was mounted last
LOG_EXPORT = Path("/share/Ostra-RecordingbackLog.csv")
LOG_LINK = CGI.parent / LOG_EXPORT.name  # to the export; where the web server finds it
FIXED_PATHS = [Path(path) for path in ("/share", "/storage", "/home/httpd", "/Zdbglog")]
