// recorderctl channel: the cameras, present and removed.
#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <memory>

#include "platform/rec_state.h"
#include "platform/standalone/store/channel_store.h"
#include "platform/standalone/store/recording_folder.h"
#include "platform/standalone/store/state_folder.h"
#include "platform/vesk_storage.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/reading_right.h"
#include "tools/recorderctl/state.h"

namespace recorderctl {

namespace {

using standalone::Channel;
using standalone::ChannelStore;

[[noreturn]] void fail_unknown(int index) {
    throw Failure("there is no channel " + std::to_string(index));
}

/// The daemon's unit gives it folders of its own there (PrivateTmp).
bool is_hidden_by_the_unit(const std::string& folder) {
    const bool temporary = folder.starts_with("/tmp/") || folder.starts_with("/var/tmp/");
    return temporary && standalone::state_folder() == standalone::DEFAULT_STATE_FOLDER &&
           std::filesystem::exists("/run/systemd/system");
}

/// Why the daemon cannot read a channel's recordings; "" when it can.
std::string problem_of(const std::string& folder) {
    if (is_hidden_by_the_unit(folder))
        return folder +
               " is hidden from the backup daemon, which has a /tmp and /var/tmp of its own";
    const ReadingRight as_the_daemon;
    return standalone::recordings_problem(folder);
}

void add_channel(Channel channel, bool force) {
    // The CGI program runs in a folder of its own, so a relative name would mean another place
    // there.
    channel.recordings = std::filesystem::absolute(channel.recordings).lexically_normal();
    const std::string problem = force ? "" : problem_of(channel.recordings);
    if (!problem.empty()) throw Failure(problem + "; --force adds the channel all the same");
    standalone::Database database = open_config();
    if (!ChannelStore(database).add(channel))
        throw Failure("index " + std::to_string(channel.index) + " or guid " + channel.guid +
                      " belongs to another channel");
    std::cout << channel.index << '\n';
}

void remove_channel(int index) {
    standalone::Database database = open_config();
    if (!ChannelStore(database).remove(index)) fail_unknown(index);
    std::cout << index << '\n';
}

void pin_state(int index, const std::string& text) {
    std::vector<int> states;
    if (text != "auto")
        for (const std::string& state : CLI::detail::split(text, ',')) {
            int number = -1;
            if (!CLI::detail::lexical_cast(state, number) || number < 0)
                throw Failure("a state is a number such as 0 (connected) or 7 (disconnected)");
            states.push_back(number);
        }
    if (states.size() > REC_STATE_MAX_STREAMS) throw Failure("a channel has at most 16 streams");
    standalone::Database database = open_config();
    if (!ChannelStore(database).pin_state(index, states)) fail_unknown(index);
    std::cout << text << '\n';
}

void print_json(const Channel& channel) {
    JsonLine line;
    line.add("index", channel.index).add("guid", channel.guid).add("ip", channel.ip);
    line.add("name", channel.name).add("brand", channel.brand).add("model", channel.model);
    line.add("streams", channel.streams).add("recordings", channel.recordings);
    line.add("removed", channel.removed);
    if (channel.pinned_state) line.add("state", *channel.pinned_state);
    const std::string problem = problem_of(channel.recordings);
    if (!problem.empty()) line.add("recordings_problem", problem);
    line.print();
}

void print_text(const Channel& channel) {
    std::vector<std::string> columns{std::to_string(channel.index),
                                     channel.removed ? "removed" : "present",
                                     channel.name,
                                     channel.ip,
                                     channel.guid,
                                     channel.recordings};
    const std::string problem = problem_of(channel.recordings);
    if (!problem.empty()) columns.push_back(problem);
    print_row(columns);
}

void list_channels(bool json) {
    standalone::Database database = open_config();
    for (const Channel& channel : ChannelStore(database).list()) {
        if (json)
            print_json(channel);
        else
            print_text(channel);
    }
}

void add_add_command(CLI::App& group) {
    const auto channel = std::make_shared<Channel>();
    CLI::App* add = group.add_subcommand("add", "Add a channel");
    add->add_option("--index", channel->index, "0 to 127")
        ->required()
        ->check(CLI::Range(0, VESK_MAX_CHANNELS - 1));
    add->add_option("--guid", channel->guid, "Identity of the camera")->required();
    add->add_option("--ip", channel->ip, "Address of the camera")->required();
    add->add_option("--name", channel->name, "Name shown to users")->required();
    add->add_option("--brand", channel->brand, "Its maker")->required();
    add->add_option("--model", channel->model, "Its model")->required();
    add->add_option("--streams", channel->streams, "Number of streams, 0 to 16")
        ->required()
        ->check(CLI::Range(0, REC_STATE_MAX_STREAMS));
    add->add_option("--recordings", channel->recordings, "Folder of its recordings")
        ->required()
        ->type_name("DIR");
    const auto force = std::make_shared<bool>(false);
    add->add_flag("--force", *force, "The folder comes later: it need not be there yet");
    add->callback([channel, force] { add_channel(*channel, *force); });
}

}  // namespace

void add_channel_commands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("channel", "Cameras and their recordings");
    group->require_subcommand(1);
    add_add_command(*group);

    const auto index = std::make_shared<int>();
    CLI::App* remove = group->add_subcommand("remove", "Remove a channel; its recordings stay");
    remove->add_option("N", *index, "Index of the channel")->required();
    remove->callback([index] { remove_channel(*index); });

    const auto json = std::make_shared<bool>(false);
    CLI::App* list = group->add_subcommand("list", "List the channels, removed ones included");
    list->add_flag("--json", *json, "One JSON object a line");
    list->callback([json] { list_channels(*json); });

    const auto states = std::make_shared<std::string>();
    CLI::App* state = group->add_subcommand("state", "Pin the state of a channel's streams");
    state->add_option("N", *index, "Index of the channel")->required();
    state->add_option("STATES", *states, "S1[,S2...], or auto to read it off the recordings")
        ->required();
    state->callback([index, states] { pin_state(*index, *states); });
}

}  // namespace recorderctl
