// The libcurl functions that HTTP calls, from libcurl.so.4 opened at the first request
// rather than at start: libcurl brings its TLS, LDAP and Kerberos libraries, which a local
// scan never needs.
#pragma once

#include <curl/curl.h>

namespace usagekit::HTTP {

struct CurlLibrary {
    decltype(&curl_global_init) global_init;
    decltype(&curl_share_init) share_init;
    decltype(&curl_share_setopt) share_setopt;
    decltype(&curl_url) url;
    decltype(&curl_url_cleanup) url_cleanup;
    decltype(&curl_url_get) url_get;
    decltype(&curl_url_set) url_set;
    decltype(&curl_free) free;
    decltype(&curl_slist_append) slist_append;
    decltype(&curl_slist_free_all) slist_free_all;
    decltype(&curl_easy_init) easy_init;
    decltype(&curl_easy_cleanup) easy_cleanup;
    decltype(&curl_easy_setopt) easy_setopt;
    decltype(&curl_easy_perform) easy_perform;
    decltype(&curl_easy_getinfo) easy_getinfo;
};

// Loaded by the first caller, on any thread; the functions stay valid for the life of the
// process. Throws TransportError, naming the library, when it or a function is missing.
const CurlLibrary& curl();

}  // namespace usagekit::HTTP
