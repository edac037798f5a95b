// Test alerts that somebody asks the daemon for: one at a time.
#include "services/backup_daemon/front/alert_tests.h"

#include <json-c/json.h>

#include "platform/service_addresses.h"
#include "services/backup_daemon/tell/alert_settings.h"

namespace services {
namespace {

constexpr int CONFLICT = 409;
constexpr int UNPROCESSABLE = 422;

const char* result_text(const TestedReceiver& receiver) {
    if (!receiver.result) return "trying";
    return receiver.result->arrived ? "arrived" : "failed";
}

json_object* new_receiver(const TestedReceiver& receiver) {
    json_object* object = json_object_new_object();
    json_object_object_add(object, "way", new_json_text(way_text(receiver.receiver.way)));
    json_object_object_add(object, "recipient", new_json_text(receiver.receiver.recipient));
    json_object_object_add(object, "result", new_json_text(result_text(receiver)));
    json_object_object_add(object, "words",
                           new_json_text(receiver.result ? receiver.result->words : ""));
    return object;
}

JsonPtr new_reply(long long number) {
    JsonPtr reply(json_object_new_object());
    json_object_object_add(reply.get(), "retCode", json_object_new_int(0));
    json_object_object_add(reply.get(), "number", json_object_new_int64(number));
    return reply;
}

}  // namespace

HttpReply AlertTests::begin() {
    look();
    if (trial_ && !trial_->is_over()) throw HttpError(CONFLICT, "A test goes on.");
    if (alert_receivers().empty()) throw HttpError(UNPROCESSABLE, "Nobody is to get alerts.");
    trial_.emplace(test_alerts("all", recorder_));
    is_noted_ = false;
    return json_reply(new_reply(++number_));
}

HttpReply AlertTests::tell() {
    if (!trial_) throw HttpError(404, "There was no test.");
    trial_->look();
    const JsonPtr reply = new_reply(number_);
    json_object* receivers = json_object_new_array();
    for (const TestedReceiver& receiver : trial_->receivers())
        json_object_array_add(receivers, new_receiver(receiver));
    json_object_object_add(reply.get(), "over", json_object_new_boolean(trial_->is_over()));
    json_object_object_add(reply.get(), "receivers", receivers);
    return json_reply(reply);
}

void AlertTests::look() {
    if (is_noted_) return;
    trial_->look();
    if (!trial_->is_over()) return;
    trial_->note_in(outbox_);
    is_noted_ = true;
}

void add_alert_test_routes(HttpService& service, AlertTests& tests) {
    service.route(NOTICE_PORT, Method::put, ALERT_TEST_PATH,
                  [&tests](const HttpRequest&) { return tests.begin(); });
    service.route(NOTICE_PORT, Method::get, ALERT_TEST_PATH,
                  [&tests](const HttpRequest&) { return tests.tell(); });
}

}  // namespace services
