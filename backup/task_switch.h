// The judgement of the daemon's reply to a delete.
#pragma once

/// A delete counts as done when there is any reply, be it empty; its content is not read.
/// @param text the reply; null when there is none at all
/// @return 0 or CGI_SSCI_RESPONSE_NULL
int check_delete_reply(const char* text);
