// What the contract suite asks of a platform: a fresh recorder and ways to put things into it.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace contract {

/// A fresh recorder. Each platform under test has its own body for it (contract_*.cpp).
class Recorder {
public:
    Recorder();
    ~Recorder();

    /// What the next requests look like: query parameters, and the session's user.
    void begin_request(const std::map<std::string, std::string>& parameters,
                       const std::string& user, unsigned level);

    void set_key(const std::string& section, const std::string& key, const std::string& value);

    /// Two tasks, named so, the first with the smaller identifier.
    void add_tasks(const std::string& first, const std::string& second);

    /// A channel whose streams are in these states.
    void add_channel(int index, const std::string& guid, const std::vector<int>& states);

    /// A removed channel with so many bytes of recordings.
    void add_removed_channel(int index, const std::string& uuid, long long normal, long long alarm);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace contract
