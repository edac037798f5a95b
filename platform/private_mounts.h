// Mounts that no other process sees, and that do no harm to the one that made them.
#pragma once

/// Gives the calling process, and what it starts from then on, a view of the mounts of its own:
/// what either mounts there nobody else ever sees, and it is gone when the last of them has ended,
/// however that comes about. To be called by root, before it mounts anything. A process without the
/// right to mount (CAP_SYS_ADMIN) keeps the view it has, since it has nothing to hide.
/// @return 0; -1 when the view could not be made: then nothing may be mounted
int enter_private_mounts();

/// Takes set-user-ID bits, devices and programs out of effect on a mounted file system and all that
/// is mounted below it. To be called before anything on it is reached.
/// @param mount_point an absolute path; where nothing is mounted there is nothing to restrict
/// @return 0; -1 when something is mounted there that could not be restricted, or there is nothing
///         at all: then nothing there may be reached
int restrict_mount(const char* mount_point);
