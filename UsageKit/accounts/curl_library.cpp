#include "accounts/curl_library.h"

#include "accounts/http.h"
#include "core/platform/shared_library.h"

namespace usagekit::HTTP {

namespace {

void findFunctions(SharedLibrary& library, CurlLibrary& f) {
    library.find(f.global_init, "curl_global_init");
    library.find(f.share_init, "curl_share_init");
    library.find(f.share_setopt, "curl_share_setopt");
    library.find(f.url, "curl_url");
    library.find(f.url_cleanup, "curl_url_cleanup");
    library.find(f.url_get, "curl_url_get");
    library.find(f.url_set, "curl_url_set");
    library.find(f.free, "curl_free");
    library.find(f.slist_append, "curl_slist_append");
    library.find(f.slist_free_all, "curl_slist_free_all");
    library.find(f.easy_init, "curl_easy_init");
    library.find(f.easy_cleanup, "curl_easy_cleanup");
    library.find(f.easy_setopt, "curl_easy_setopt");
    library.find(f.easy_perform, "curl_easy_perform");
    library.find(f.easy_getinfo, "curl_easy_getinfo");
}

}  // namespace

const CurlLibrary& curl() {
    static const auto loaded = SharedLibrary::load<CurlLibrary>(
        "libcurl.so.4", "Provider accounts and plan limits", findFunctions);
    if (!loaded.problem.empty()) throw TransportError(loaded.problem);
    return loaded.functions;
}

}  // namespace usagekit::HTTP
