// The judgement of the log service's reply.
#pragma once

#include "backup/operation.h"

/// Parses the reply of a log query.
/// @param text the reply; null when there is none at all
/// @param log receives the JSON object on success
/// @return 0, or CGI_PARSER_JSON_FAIL when the reply is no JSON object
int parse_log_reply(const char* text, JsonPtr& log);
