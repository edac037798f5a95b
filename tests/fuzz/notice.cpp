// Notices to the backup daemon: read, or refused with a sentence; written again they say the same.
#include "services/backup_daemon/front/notice.h"

#include <algorithm>
#include <optional>

#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_grammar.h"

namespace {

using fuzz::check;
using services::Notice;

std::optional<Notice> read_notice(const std::string& text) {
    try {
        return services::parse_notice(text);
    } catch (const services::BadNotice& error) {
        const std::string why = error.what();
        check(why.ends_with('.') && fuzz::is_utf8_text(why), "a refusal is a sentence");
        return {};
    }
}

std::string word(bool flag) {
    return flag ? "true" : "false";
}

/// The notice as the operations send it.
std::string written(const Notice& notice) {
    std::string text = R"({"notice_reason": {"type": 1030, "action": 1})";
    if (notice.kind == Notice::Kind::reload) return text + "}";
    text += R"(, "task_info": {"start_task": )" + word(notice.kind == Notice::Kind::start);
    if (!notice.task_id.empty()) text += R"(, "taskID": )" + notice.task_id;
    text += R"(, "stop_running_task": )" + word(notice.stop_running);
    return text + R"(, "is_parallel_running": )" + word(notice.parallel) + "}}";
}

bool is_number(const std::string& text) {
    const std::string digits = text.substr(text.starts_with('-') ? 1 : 0);
    return !digits.empty() &&
           std::ranges::all_of(digits, [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::text(data, size);
    const std::optional<Notice> notice = read_notice(text);
    if (!notice) return 0;
    check(fuzz::is_json(text), "what is read is JSON");
    check(notice->task_id.empty() || is_number(notice->task_id), "a task is named by its number");
    check(notice->kind != Notice::Kind::start || !notice->task_id.empty(), "a start names a task");
    const std::optional<Notice> again = read_notice(written(*notice));
    check(again && again->kind == notice->kind && again->task_id == notice->task_id &&
              again->stop_running == notice->stop_running && again->parallel == notice->parallel,
          "a notice that is written again says the same");
    return 0;
}
