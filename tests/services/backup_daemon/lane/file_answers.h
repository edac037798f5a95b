// Reports on files of a share by their sizes alone.
#pragma once

#include <vector>

#include "services/backup_daemon/lane/worker_messages.h"

/// A report on files of these sizes; -1: there is none.
inline services::Files files_of(const std::vector<long long>& sizes) {
    services::Files report;
    for (const long long size : sizes) report.files.push_back({.size = size});
    return report;
}

inline std::vector<long long> sizes_of(const services::Files& report) {
    std::vector<long long> sizes;
    for (const services::FileState& file : report.files) sizes.push_back(file.size);
    return sizes;
}
