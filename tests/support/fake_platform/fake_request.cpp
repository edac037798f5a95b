// The fake's request side: CGI input, session, path splitter, JSON getters, the process's rights.
#include <json-c/json.h>

#include <cstdint>
#include <deque>
#include <memory>

#include "platform/cgi_input.h"
#include "platform/comutil_json.h"
#include "platform/process_rights.h"
#include "tests/support/fake_platform/fake_platform.h"
#include "tests/support/fake_platform/fake_state.h"

struct tagINPUT {
    std::map<std::string, std::string> texts;
    std::deque<tagPARAMETER> handed_out;
};

namespace {

void copy_into(const std::string& text, char* buffer, std::size_t size) {
    snprintf(buffer, size, "%s", text.c_str());
}

// The cut falls in front of a UTF-8 character, never inside one.
std::size_t whole_characters(const std::string& text, std::size_t most) {
    if (text.size() <= most) return text.size();
    while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xc0) == 0x80) --most;
    return most;
}

json_object* member(json_object* object, const char* key) {
    json_object* value = nullptr;
    if (!object || !json_object_is_type(object, json_type_object)) return nullptr;
    return json_object_object_get_ex(object, key, &value) ? value : nullptr;
}

bool works(const char* getter, const char* key) {
    return !fake::called(getter, {key});
}

}  // namespace

void take_recorder_identity() {
    fake::called(__func__, {});
}

void give_up_root() {
    fake::called(__func__, {});
}

tagINPUT* CGI_Get_Input_URL() {
    if (fake::called(__func__, {})) return nullptr;
    return std::make_unique<tagINPUT>(tagINPUT{fake::platform.parameters, {}}).release();
}

void CGI_Free_Input(tagINPUT* input) {
    fake::called(__func__, {input ? "input" : "(null)"});
    std::unique_ptr<tagINPUT> owner(input);
}

tagPARAMETER* _CGI_Find_Parameter(tagINPUT* input, const char* name, ...) {
    if (fake::called(__func__, {name}) || !input) return nullptr;
    const auto found = input->texts.find(name);
    if (found == input->texts.end()) return nullptr;
    return &input->handed_out.emplace_back(
        tagPARAMETER{const_cast<char*>(found->first.c_str()), found->second.data()});
}

int cgi_check_user_authentication_v3(tagINPUT* input, t_ostra_auth_info* info, unsigned level) {
    const auto code = fake::called(__func__, {input ? "input" : "(null)", std::to_string(level)});
    if (code) return *code;
    if (!input || fake::platform.level < level) return -1;
    copy_into(fake::platform.user, info->user, sizeof info->user);
    if (!fake::platform.long_user.empty())
        copy_into(fake::platform.long_user, info->user_name, sizeof info->user_name);
    info->level = fake::platform.level;
    return 0;
}

int cgi_uri_token_paser(char* path_info, std::vector<std::string>* segments) {
    fake::called(__func__, {path_info});
    const std::string path = path_info;
    int count = 0;
    for (std::size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
        end = path.find('/', begin);
        const std::string segment = path.substr(begin, end - begin);
        if (segment.empty()) continue;
        segments->push_back(segment);
        ++count;
    }
    return count;
}

bool comutil_get_json_str_by_key(json_object* object, const char* key, char* buf,
                                 std::size_t size) {
    json_object* value = member(object, key);
    if (!works(__func__, key) || size == 0 || !json_object_is_type(value, json_type_string))
        return false;
    const std::string text = json_object_get_string(value);
    copy_into(text.substr(0, whole_characters(text, size - 1)), buf, size);
    return true;
}

bool comutil_get_json_int_by_key(json_object* object, const char* key, int* value) {
    json_object* found = member(object, key);
    if (!works(__func__, key) || !json_object_is_type(found, json_type_int)) return false;
    *value = json_object_get_int(found);
    return true;
}

bool comutil_get_json_bool_by_key(json_object* object, const char* key, bool* value) {
    json_object* found = member(object, key);
    if (!works(__func__, key) || !json_object_is_type(found, json_type_boolean)) return false;
    *value = json_object_get_boolean(found);
    return true;
}

bool comutil_get_json_double_by_key(json_object* object, const char* key, double* value) {
    json_object* found = member(object, key);
    const bool number =
        json_object_is_type(found, json_type_double) || json_object_is_type(found, json_type_int);
    if (!works(__func__, key) || !number) return false;
    *value = json_object_get_double(found);
    return true;
}
