// POST alerts/test: whether alerts would arrive now.
#include "console/alert_test_route.h"

#include <chrono>
#include <thread>

#include "platform/service_addresses.h"
#include "platform/ssci_client.h"
#include "platform/standalone/store/strict_json.h"

namespace console {

namespace {

using Clock = std::chrono::steady_clock;

// The daemon gives a test a minute.
constexpr std::chrono::seconds LONGEST_TEST(70);
constexpr std::chrono::milliseconds BETWEEN_LOOKS(200);

constexpr int CONFLICT = 409;
constexpr int UNPROCESSABLE = 422;

Refusal busy() {
    return {.status = 503,
            .code = "busy",
            .text = "Another test is being sent just now.",
            .retry_after = 5};
}

/// @param status of the client's call
Refusal refusal_of(int status) {
    if (status == CONFLICT) return busy();
    if (status == UNPROCESSABLE)
        return {.status = 422,
                .code = "no_receiver",
                .text = "Alerts go nowhere: neither a mail address nor a web hook is set."};
    return {.status = 503,
            .code = "no_daemon",
            .text = "The backup service does not answer: nobody sends alerts now."};
}

JsonPtr object_in(int status, const std::string& reply) {
    if (status != 0) throw refusal_of(status);
    JsonPtr object = standalone::parse_strict_object(reply);
    if (!object) throw refusal_of(-1);
    return object;
}

long long number_of(const JsonPtr& reply) {
    return json_object_get_int64(json_object_object_get(reply.get(), "number"));
}

bool is_over(const JsonPtr& reply) {
    return json_object_get_boolean(json_object_object_get(reply.get(), "over")) != 0;
}

long long begin() {
    std::string reply;
    const int status = ssci_PUT_request(LOOPBACK, NOTICE_PORT, ALERT_TEST_PATH, "{}", reply,
                                        ANSWER_SECONDS, false, false, 0, nullptr);
    return number_of(object_in(status, reply));
}

JsonPtr look() {
    std::string reply;
    const int status = ssci_GET_request(LOOPBACK, NOTICE_PORT, ALERT_TEST_PATH, nullptr, reply,
                                        ANSWER_SECONDS, false, false, 0, nullptr);
    return object_in(status, reply);
}

/// The end of the test with this number. It is over before anybody can begin another one, so
/// whoever finds a later one has not looked for long: a machine that was asleep.
JsonPtr wait_for_end(long long number) {
    for (const auto end = Clock::now() + LONGEST_TEST; Clock::now() < end;) {
        JsonPtr reply = look();
        if (number_of(reply) != number) throw busy();
        if (is_over(reply)) return reply;
        std::this_thread::sleep_for(BETWEEN_LOOKS);
    }
    throw refusal_of(-1);
}

std::string text_of(json_object* object, const char* name) {
    return json_object_get_string(json_object_object_get(object, name));
}

Json receivers_of(const JsonPtr& reply) {
    Json array = Json::array();
    json_object* receivers = json_object_object_get(reply.get(), "receivers");
    for (std::size_t at = 0; at < json_object_array_length(receivers); ++at) {
        json_object* receiver = json_object_array_get_idx(receivers, at);
        Json object = Json::object();
        object.add("way", text_of(receiver, "way"));
        object.add("recipient", text_of(receiver, "recipient"));
        object.add("arrived", text_of(receiver, "result") == "arrived");
        object.add("words", text_of(receiver, "words"));
        array.append(object);
    }
    return array;
}

}  // namespace

Reply test_alerts(const Request&) {
    Json object = Json::object();
    object.add("receivers", receivers_of(wait_for_end(begin())));
    return json_reply(object);
}

}  // namespace console
