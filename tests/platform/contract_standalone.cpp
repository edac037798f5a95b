// The stand-alone recorder under the contract suite.
#include "platform/standalone/store/channel_store.h"
#include "platform/standalone/store/key_value_store.h"
#include "platform/standalone/store/session_store.h"
#include "platform/standalone/store/task_store.h"
#include "tests/platform/contract_fixture.h"
#include "tests/support/temporary_state.h"

namespace contract {

using namespace standalone;

struct Recorder::State {
    TemporaryState folder;
    Database config{config_database_path(), Database::Access::writing};
    Database registry{registry_database_path(), Database::Access::writing};
};

Recorder::Recorder() : state_(std::make_unique<State>()) {}

Recorder::~Recorder() = default;

void Recorder::begin_request(const std::map<std::string, std::string>& parameters,
                             const std::string& user, unsigned level) {
    UserStore(state_->registry).add({user, level}, "secret");
    std::string query = "sid=" + SessionStore(state_->registry).open(user, 1);
    for (const auto& [name, value] : parameters) query += '&' + name + '=' + value;
    setenv("QUERY_STRING", query.c_str(), 1);
}

void Recorder::set_key(const std::string& section, const std::string& key,
                       const std::string& value) {
    KeyValueStore(state_->registry).set(section, key, value);
}

void Recorder::add_tasks(const std::string& first, const std::string& second) {
    for (const std::string& name : {first, second})
        ASSERT_EQ(TaskStore(state_->config).apply_settings(R"({"taskName": ")" + name + R"("})"),
                  0);
}

void Recorder::add_channel(int index, const std::string& guid, const std::vector<int>& states) {
    Channel channel;
    channel.index = index;
    channel.guid = guid;
    channel.streams = static_cast<int>(states.size());
    ASSERT_TRUE(ChannelStore(state_->config).add(channel));
    ASSERT_TRUE(ChannelStore(state_->config).pin_state(index, states));
}

void Recorder::add_removed_channel(int index, const std::string& uuid, long long normal,
                                   long long alarm) {
    Channel channel;
    channel.index = index;
    channel.guid = uuid;
    channel.name = "gone";
    channel.recordings = state_->folder.folder() + "/recordings";
    const std::string day = channel.recordings + "/2024-03-01/";
    write_file(day + "10-00-00.mp4", std::string(static_cast<std::size_t>(normal), 'n'));
    write_file(day + "alarm/11-00-00.mp4", std::string(static_cast<std::size_t>(alarm), 'a'));
    ASSERT_TRUE(ChannelStore(state_->config).add(channel));
    ASSERT_TRUE(ChannelStore(state_->config).remove(index));
}

}  // namespace contract
