// The daemon's right to read every folder, for a look at what the daemon will see.
#pragma once

namespace recorderctl {

/// Root becomes the recorder's user and keeps the right to read everything, and that alone, to be
/// put to use by a ReadingRight. Others stay who they are, without it.
void become_recorder();

/// As long as it lives, folders and files are open to this process as they are to the daemon, which
/// runs as the recorder's user and may read everything. Without effect where nobody gave the right.
class ReadingRight {
public:
    ReadingRight();
    ~ReadingRight();
    ReadingRight(const ReadingRight&) = delete;
    ReadingRight& operator=(const ReadingRight&) = delete;
};

}  // namespace recorderctl
