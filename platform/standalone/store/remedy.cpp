// What to do about a problem, in the sentences of docs/operations.md.
#include "platform/standalone/store/remedy.h"

#include <algorithm>
#include <array>

namespace standalone {
namespace {

/// Whether a reason has to be about a file or folder of the recorder's own.
enum class Where { anywhere, here };

/// Of failed runs: a part of the reason, and what helps.
struct Remedy {
    const char* reason;
    const char* text;
    Where where = Where::anywhere;
};

constexpr char LOGIN[] =
    "try the same with `smbclient -U user -p PORT //server/share`; correct the task";
constexpr char NOT_FOR_USER[] = "the login is right; the share's own list of users is not";
constexpr char NO_SERVER[] =
    "\"serverIP\" is misspelt, or its name is in no name service that this machine asks "
    "(`getent hosts NAME`)";
constexpr char NO_SHARE[] =
    "\"destPath\" begins with the share's name: `smbclient -L //server -U user`";
constexpr char DISK_WENT[] =
    "the disk with that camera's recordings went while the run was on: mount it, start the task "
    "again";
constexpr char NOBODYS_FOLDER[] =
    "the user may not read `.recording-backup` in the task's folder: give it the right";
constexpr char PROCESS_ENDED[] =
    "a file brings down whoever copies it: the daemon's log has the kernel's word on it (memory?); "
    "the file is named";
constexpr char NO_ADDRESS[] = "\"serverIP\" or \"destPath\" is empty";
constexpr char NO_ROOM[] = "make room, shorten \"remoteKeepRecDays\", or choose \"overwrite\"";
constexpr char KEEPS_DELETED[] =
    "the server keeps what is deleted: empty its recycle bin and turn it off for this share, or "
    "shorten the time that snapshots are kept; no more copies were removed";
constexpr char QUOTA[] =
    "a quota of the user's or the folder's, or a file that is too large for the server's disk "
    "(4 GiB on FAT)";
constexpr char CANNOT_FIT[] =
    "that file cannot fit; nothing was removed for it. A larger share, or fewer cameras and days";
constexpr char ANOTHERS_FOLDER[] =
    "two recorders' identities begin alike: give one of the tasks another folder";
constexpr char DOUBTED[] =
    "the clock is wrong, or the recorder was off for more than a month. Set the clock; if it is "
    "right, do nothing: old copies go again from the day on that the event names";
constexpr char NOT_REMOVED[] =
    "somebody has replaced a copy. The daemon has nothing to do with the file any more; delete it "
    "if you like";
constexpr char FORGOTTEN[] =
    "the server has not kept what it took: look at its log, disks and memory. The run has compared "
    "that camera's day and made anew what it could";
constexpr char LOST_FOR_GOOD[] =
    "its recording is gone, or no longer selected: that recording is lost, or lies elsewhere. This "
    "is told once; look at the file on the share and delete it if it is worth nothing";
constexpr char OTHER_BYTES[] = "the server's disk or memory: two attempts differed";
constexpr char CHANGED[] =
    "size, or time and content, are not those that the copy had: move that file away, and the next "
    "run copies the recording again";
constexpr char RECORDING_WENT[] = "the recorder removed the recording before its turn came";
constexpr char OWN_FILE[] =
    "the file or folder is the recorder's own: look at its owner and mode, its disk and the "
    "machine's log";
constexpr char OWN_DATABASE[] =
    "the run goes on by itself as soon as the database can be written: look for what holds it "
    "(`fuser -v /var/lib/recorder/*.db*`), or for what fills its disk";
constexpr char UNREADABLE[] =
    "mount its disk, correct the channel's folder (`recorderctl channel list`), look at the "
    "machine's log; until then no run of that camera removes any copy";
constexpr char DENIED[] = "the user may log in and not write there";
constexpr char FOREIGN[] =
    "somebody else writes into the same folder: move that file, or give the task a folder of its "
    "own";
constexpr char NO_CHANNEL[] = "the task lists a channel that was never configured";
constexpr char NO_CONNECTION[] =
    "the run had tried for 30 minutes; server, network, port. Start it again: it goes on where it "
    "stopped";

// The first that fits counts, so what is said of a share or server stands before what is said of
// any file, and what may be said of both by the same words last.
constexpr std::array RUN_REMEDIES = {
    Remedy{"the server refuses user", LOGIN},
    Remedy{"does not give this share to user", NOT_FOR_USER},
    Remedy{"there is no such server", NO_SERVER},
    Remedy{"there is no such share", NO_SHARE},
    Remedy{"names no server and share", NO_ADDRESS},
    Remedy{"own database cannot be written", OWN_DATABASE},
    Remedy{"nobody can tell whose folder it is", NOBODYS_FOLDER},
    Remedy{"another recorder's folder", ANOTHERS_FOLDER},
    Remedy{" is doubted: ", DOUBTED},
    Remedy{"the share is full", NO_ROOM},
    Remedy{"has no recordings any more", DISK_WENT},
    Remedy{"is another folder than it was", DISK_WENT},
    Remedy{"there is no channel", NO_CHANNEL},
    Remedy{"the copying process ", PROCESS_ENDED},
    Remedy{"older copies were removed, and the share has only", KEEPS_DELETED},
    Remedy{"the share takes no more of it", QUOTA},
    Remedy{" bytes, the share has ", CANNOT_FIT},
    Remedy{"is not as it was copied, and stays", NOT_REMOVED},
    Remedy{"is not as it was made, and is not made anew", LOST_FOR_GOOD},
    Remedy{" is not there any more", FORGOTTEN},
    Remedy{" than it was made with", FORGOTTEN},
    Remedy{"not of this recorder, has this name", FOREIGN},
    Remedy{"was changed by somebody else, and stays", CHANGED},
    Remedy{"gives back other bytes than it got", OTHER_BYTES},
    Remedy{" cannot be read: ", UNREADABLE, Where::here},
    Remedy{": No such file or directory", RECORDING_WENT, Where::here},
    Remedy{": ", OWN_FILE, Where::here},
    Remedy{" cannot be read: ", FORGOTTEN},
    Remedy{"the server does not answer", NO_CONNECTION},
    Remedy{"the server's name cannot be looked up", NO_CONNECTION},
    Remedy{"timed out", NO_CONNECTION},
    Remedy{"Connection refused", NO_CONNECTION},
    Remedy{"Connection reset by peer", NO_CONNECTION},
    Remedy{"Software caused connection abort", NO_CONNECTION},
    Remedy{"Broken pipe", NO_CONNECTION},
    Remedy{"No route to host", NO_CONNECTION},
    Remedy{"Host is down", NO_CONNECTION},
    Remedy{"Network is unreachable", NO_CONNECTION},
    Remedy{"Network is down", NO_CONNECTION},
    Remedy{"Network dropped connection", NO_CONNECTION},
    Remedy{"Transport endpoint is not connected", NO_CONNECTION},
    Remedy{"Input/output error", NO_CONNECTION},
    Remedy{"Bad file descriptor", NO_CONNECTION},
    Remedy{"Permission denied", DENIED},
    Remedy{"Operation not permitted", DENIED},
    Remedy{"Read-only file system", DENIED},
};

constexpr char OTHER_FAILURE[] =
    "`recorderctl run show TASK` names the files that were not copied, and why; \"When a run "
    "fails\" in docs/operations.md has the reasons and what to do about them";
constexpr char OVERDUE[] =
    "`recorderctl run list TASK` tells what its runs came to; was the recorder off, does another "
    "task keep it waiting, or does `systemctl status recording-backupd` say that nobody starts it?";
constexpr char NEARLY_FULL[] =
    "make room on the share, or have the tasks that copy there keep less: shorten "
    "\"remoteKeepRecDays\". When the share is full, runs fail or, with \"overwrite\", remove the "
    "oldest copies. It is over when a run finds 6 % free";
constexpr char COPIES_DIFFER[] =
    "the server has not kept what it took: look at its log, disks and memory, and have everything "
    "compared once with `recorderctl backup recheck`. The next runs make anew what still has its "
    "recording; it is over with the first that finds nothing more";
constexpr char TEST[] = "nothing: this is a test";

/// Whether a reason names a path of this machine's: those of shares begin with two slashes or none.
bool is_here(const std::string& reason) {
    const std::string text = ": " + reason;
    for (auto at = text.find(": /"); at != std::string::npos; at = text.find(": /", at + 1))
        if (text.compare(at, 4, ": //") != 0) return true;
    return false;
}

}  // namespace

std::string remedy_for_run(const std::string& reason) {
    const bool here = is_here(reason);
    const auto* const found = std::ranges::find_if(RUN_REMEDIES, [&](const Remedy& remedy) {
        return (here || remedy.where == Where::anywhere) &&
               reason.find(remedy.reason) != std::string::npos;
    });
    return found == RUN_REMEDIES.end() ? OTHER_FAILURE : found->text;
}

std::string remedy_for(ProblemKind kind, const std::string& detail) {
    switch (kind) {
        case ProblemKind::run_failed:
            break;
        case ProblemKind::overdue:
            return OVERDUE;
        case ProblemKind::share_nearly_full:
            return NEARLY_FULL;
        case ProblemKind::copies_differ:
            return COPIES_DIFFER;
    }
    return remedy_for_run(detail);
}

std::string remedy_of_test() {
    return TEST;
}

std::vector<std::string> all_remedies() {
    std::vector<std::string> texts = {OTHER_FAILURE, OVERDUE, NEARLY_FULL, COPIES_DIFFER, TEST};
    for (const Remedy& remedy : RUN_REMEDIES) texts.emplace_back(remedy.text);
    return texts;
}

}  // namespace standalone
