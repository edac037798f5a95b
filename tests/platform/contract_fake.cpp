// The fake recorder under the contract suite.
#include "tests/platform/contract_fixture.h"
#include "tests/support/fake_platform/fake_platform.h"

namespace contract {

struct Recorder::State {};

Recorder::Recorder() {
    fake::reset();
}

Recorder::~Recorder() = default;

void Recorder::begin_request(const std::map<std::string, std::string>& parameters,
                             const std::string& user, unsigned level) {
    fake::platform.parameters = parameters;
    fake::platform.user = user;
    fake::platform.level = level;
}

void Recorder::set_key(const std::string& section, const std::string& key,
                       const std::string& value) {
    fake::platform.keys[section + "/" + key] = value;
}

void Recorder::add_tasks(const std::string& first, const std::string& second) {
    int number = 0;
    for (const std::string& name : {first, second}) {
        TDataBackupConfig task;
        task.taskID = std::to_string(++number);
        task.taskName = name;
        fake::platform.tasks.push_back(task);
    }
}

void Recorder::add_channel(int index, const std::string& guid, const std::vector<int>& states) {
    fake::platform.channel_settings = R"({"datas": [{"channel_index": )" + std::to_string(index) +
                                      R"(, "guid": ")" + guid + R"("}]})";
    auto& stored = fake::platform.channel_states;
    TChannelStatus idle;
    for (int& state : idle.stream_state) state = 4;
    stored.resize(static_cast<std::size_t>(index) + 1, idle);
    for (std::size_t stream = 0; stream < states.size(); ++stream)
        stored.back().stream_state[stream] = states[stream];
}

void Recorder::add_removed_channel(int index, const std::string& uuid, long long normal,
                                   long long alarm) {
    fake::platform.removed_channels.push_back({index, uuid, "gone", normal, alarm});
}

}  // namespace contract
