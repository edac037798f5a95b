// Bodies of the web console: answered or refused as JSON, and written texts are read back.
#include <json-c/json.h>

#include "console/preview_route.h"
#include "platform/standalone/store/strict_json.h"
#include "platform/standalone/store/utf8.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_grammar.h"

namespace {

using fuzz::check;

console::Reply answer(const std::string& body) {
    console::Request request;
    request.body = body;
    try {
        return console::preview_schedule(request);
    } catch (const console::Refusal& refusal) {
        check(refusal.code == "bad_body" || refusal.code == "bad_field", "a refusal says why");
        check((refusal.code == "bad_field") == !refusal.field.empty(), "a field is named");
        return console::refusal_reply(refusal);
    }
}

/// Five times at most, each behind the one before.
void check_times(json_object* times) {
    const std::size_t count = json_object_array_length(times);
    check(count <= 5, "no more times are told than were asked for");
    for (std::size_t i = 1; i < count; ++i)
        check(json_object_get_int64(json_object_array_get_idx(times, i - 1)) <
                  json_object_get_int64(json_object_array_get_idx(times, i)),
              "times rise");
}

void check_answer(const std::string& body) {
    const console::Reply reply = answer(body);
    check(reply.status == 200 || reply.status == 400, "a body is answered or refused");
    check(fuzz::is_json(reply.body), "a reply is JSON");
    const auto object = standalone::parse_strict_object(reply.body);
    check(object != nullptr, "a reply is an object");
    if (reply.status == 200) check_times(json_object_object_get(object.get(), "times"));
}

void check_writing(const std::string& text) {
    console::Json object = console::Json::object();
    object.add("text", text);
    const auto read = standalone::parse_strict_object(object.text());
    check(read != nullptr, "what is written is read");
    json_object* member = json_object_object_get(read.get(), "text");
    const std::string_view found(json_object_get_string(member),
                                 static_cast<std::size_t>(json_object_get_string_len(member)));
    check(found == standalone::valid_utf8(text), "a text is read as it was written");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input = fuzz::text(data, size);
    check_answer(input);
    check_writing(input);
    return 0;
}
