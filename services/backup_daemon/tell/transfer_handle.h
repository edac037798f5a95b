// A transfer by libcurl, with what alerts always want of it: time limits, verified servers, and
// nothing that files or the environment of whoever started the daemon say.
#pragma once

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>

namespace services {

/// A list of texts for libcurl.
class CurlList {
public:
    void add(const std::string& text);
    curl_slist* get() const { return list_.get(); }

private:
    struct Free {
        void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    };
    std::unique_ptr<curl_slist, Free> list_;
};

/// Lists and buffers that are set have to live as long as the handle, texts are copied. All calls
/// throw std::runtime_error when the library fails, perform() apart.
class TransferHandle {
public:
    /// @param protocols that may be used, as "http,https"
    /// @param limit for the whole transfer
    /// @param ca_file authorities that vouch for the server; "": those of the system
    TransferHandle(const std::string& url, const char* protocols, std::chrono::seconds limit,
                   const std::string& ca_file);

    template <typename Value>
    void set(CURLoption option, Value value) {
        check(curl_easy_setopt(handle_.get(), option, value));
    }

    /// @return "" when all went well, otherwise why not, in a line
    std::string perform();

    /// The newest status that the server gave; 0: none.
    long status();

private:
    static void check(CURLcode code);

    struct Cleanup {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };
    std::array<char, CURL_ERROR_SIZE> error_{};
    std::unique_ptr<CURL, Cleanup> handle_;
};

}  // namespace services
