// Orders as lines of text with all that they say, to compare and to read.
#include "order_text.h"

using namespace services;

namespace {

std::string joined(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts) all += (all.empty() ? "" : " ") + text;
    return all;
}

std::string print(const FindPlace& order) {
    return "place " + order.folder + " of " + order.recorder + " task " + order.task_id +
           " known " + order.known.id + (order.known.marked ? " marked" : "") +
           (order.only_look ? " only look" : "");
}

std::string print(const WriteText& order) {
    return "write " + order.path + " via " + order.temporary + ": " + order.text;
}

std::string print(const ListDays& order) {
    return "days " + order.recordings + " " + order.first + ".." + order.last;
}

std::string print(const ListDay& order) {
    std::string text = "look " + order.recordings + " " + order.day +
                       (order.normal ? " normal" : "") + (order.alarm ? " alarm" : "") + " " +
                       order.remote + (order.ask_share ? " asked" : "");
    for (const DayBeyond& day : order.beyond)
        text += " + " + order.folders->at(day.folder).recordings + " " + day.day +
                (day.empty.inode != 0 ? " stamped" : "");
    return text;
}

std::string print(const CopyJob& order) {
    std::string text = "copy " + order.recordings + "/" + order.source + " -> " + order.target +
                       " via " + order.temporary + " recorded " +
                       std::to_string(order.recorded ? order.recorded->size : -1) + " from " +
                       std::to_string(order.offset) + " \"" + order.prefix_sha256 + "\"" +
                       (order.check ? " checked" : "");
    if (!order.side_file) return text;
    return text + " side " + std::to_string(order.side_file->channel) + " " +
           order.side_file->guid + " " + std::to_string(order.side_file->start);
}

std::string print(const DoomedFile& file) {
    std::string text = file.path;
    if (file.size >= 0) text += "=" + std::to_string(file.size);
    if (file.modified_ns) text += "@" + std::to_string(*file.modified_ns);
    return file.description_end.empty() ? text : text + "+" + file.description_end;
}

std::string print(const RemoveFiles& order) {
    std::vector<std::string> files;
    for (const DoomedFile& file : order.files) files.push_back(print(file));
    return "remove " + joined(files) + ", folders " + joined(order.folders);
}

std::string print(const ReadCopy& order) {
    return "check " + order.copy.path + "=" + std::to_string(order.copy.size) + " \"" +
           order.copy.sha256 + "\" of " + order.recordings + "/" + order.source + "@" +
           std::to_string(order.modified_ns);
}

std::string print(const AskRoom& order) {
    return order.awaited == 0 ? "room" : "room for " + std::to_string(order.awaited);
}

}  // namespace

std::string text_of(const Order& order) {
    return std::visit([](const auto& which) { return print(which); }, order);
}
