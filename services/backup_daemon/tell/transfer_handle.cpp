// A transfer by libcurl, with what alerts always want of it: time limits, verified servers, and
// nothing that files or the environment of whoever started the daemon say.
#include "services/backup_daemon/tell/transfer_handle.h"

#include <stdexcept>

namespace services {
namespace {

constexpr long CONNECTING = 10;  // seconds

}  // namespace

void CurlList::add(const std::string& text) {
    curl_slist* longer = curl_slist_append(list_.get(), text.c_str());
    if (longer == nullptr) throw std::runtime_error("out of memory");
    if (!list_) list_.reset(longer);
}

TransferHandle::TransferHandle(const std::string& url, const char* protocols,
                               std::chrono::seconds limit, const std::string& ca_file)
    : handle_(curl_easy_init()) {
    if (!handle_) throw std::runtime_error("libcurl cannot be used");
    set(CURLOPT_ERRORBUFFER, error_.data());
    set(CURLOPT_URL, url.c_str());
    set(CURLOPT_PROTOCOLS_STR, protocols);
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_CONNECTTIMEOUT, CONNECTING);
    set(CURLOPT_TIMEOUT, static_cast<long>(limit.count()));
    set(CURLOPT_PROXY, "");
    set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    if (!ca_file.empty()) {
        set(CURLOPT_CAINFO, ca_file.c_str());
        set(CURLOPT_CAPATH, nullptr);
    }
}

void TransferHandle::check(CURLcode code) {
    if (code != CURLE_OK) throw std::runtime_error(curl_easy_strerror(code));
}

std::string TransferHandle::perform() {
    error_[0] = '\0';
    const CURLcode code = curl_easy_perform(handle_.get());
    if (code == CURLE_OK) return "";
    return error_[0] != '\0' ? error_.data() : curl_easy_strerror(code);
}

long TransferHandle::status() {
    long status = 0;
    curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &status);
    return status;
}

}  // namespace services
