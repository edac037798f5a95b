// Who a request's process is: the recorder's own user, and root only for the tools that need it.
#pragma once

// The program is set-user-ID root because mounting takes root. Everything else it does as the
// recorder's user, so that a fault in a parser is worth no more than that user's files.

/// Takes on the identity of the recorder's user, to be called before anything is read: effective
/// user and group become that user's, and the group that the process was started with (the web
/// server's) stays the real one and becomes the only supplementary one. `setreuid(0, 0)` still
/// leads back to root. A process without root's rights stays who it is, and so does one whose
/// recorder belongs to root. Where there is no recorder at all, root is given up for the user who
/// started the process.
/// Ends the process (abort(3)) when the kernel refuses: nothing may go on as root by mistake.
void take_recorder_identity();

/// Gives up every way back to root: real and saved user become what the effective one is. A
/// recorder that belongs to root loses nothing by it.
/// Ends the process (abort(3)) when the kernel refuses.
void give_up_root();
