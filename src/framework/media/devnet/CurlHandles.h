#pragma once
// Owners of libcurl handles.

#include <curl/curl.h>

#include <memory>

namespace DevNet {

struct CurlEasyCleanup {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct CurlMultiCleanup {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
struct CurlSlistFree {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

using EasyPtr = std::unique_ptr<CURL, CurlEasyCleanup>;
using MultiPtr = std::unique_ptr<CURLM, CurlMultiCleanup>;
using SlistPtr = std::unique_ptr<curl_slist, CurlSlistFree>;

/// Appends a header line to a list owned by `list`.
inline void AppendHeader(SlistPtr& list, const char* header) {
    curl_slist* grown = curl_slist_append(list.get(), header);
    if (grown != nullptr) {
        list.release();
        list.reset(grown);
    }
}

}  // namespace DevNet
