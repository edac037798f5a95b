// Orders as lines of text with all that they say, to compare and to read.
#pragma once

#include <string>

#include "services/backup_daemon/run/lane_messages.h"

/// "days FOLDER FIRST..LAST", "look FOLDER DAY [normal] [alarm] REMOTE [asked]",
/// "copy SOURCE -> TARGET via TEMPORARY recorded SIZE from OFFSET HASH [checked] [side FILE]" or
/// "remove FILES, folders FOLDERS", a file being "PATH[=SIZE][@TIME][+END OF ITS DESCRIPTION]", or
/// "room".
std::string text_of(const services::Order& order);
