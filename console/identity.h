// Who a console request's process is: the state folder's owner, without any right beyond.
#pragma once

/// Takes on the identity of the state folder's owner for good, to be called before anything is
/// read: the program is installed set-user-ID to that user, never to root for another's folder. The
/// group that started the process (the web server's) stays. Nothing that it starts can get more
/// rights, its files are its own whatever umask(2) came along, and of a recorder that belongs to
/// root it keeps root's files and none of root's capabilities.
/// Ends the process (abort(3)) where it would be root with somebody else's folder, or the kernel
/// refuses.
void take_owner_identity();
