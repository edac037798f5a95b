// Root's rights that are kept: the daemon's, to read every folder, for a look at what the daemon
// will see; and the web server's, to listen on the lowest ports, to see whether they are free.
#pragma once

namespace recorderctl {

/// Root becomes the recorder's user and keeps the rights to read everything and to listen on every
/// port, and those alone, to be put to use by a ReadingRight or a PortRight. Others stay who they
/// are, without them.
void become_recorder();

/// In a process that is about to run another program: that may read everything, too.
void hand_down_reading_right();

/// As long as it lives, this process has one of the rights. Without effect where nobody gave it.
class Right {
public:
    Right(const Right&) = delete;
    Right& operator=(const Right&) = delete;

protected:
    explicit Right(int capability);
    ~Right();

private:
    int capability;
};

/// Folders and files are open to this process as they are to the daemon, which runs as the
/// recorder's user and may read everything.
struct ReadingRight : Right {
    ReadingRight();
};

/// This process may listen on ports below 1024.
struct PortRight : Right {
    PortRight();
};

}  // namespace recorderctl
