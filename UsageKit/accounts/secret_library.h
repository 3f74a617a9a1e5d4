// The libsecret and GLib functions that the keychain calls, from libsecret-1.so.0 opened at
// the first key lookup rather than at start (GLib's own libraries come with it, and a local
// scan needs none of them).
#pragma once

#include <libsecret/secret.h>

namespace usagekit::Keychain {

struct SecretLibrary {
    decltype(&secret_service_get_sync) service_get_sync;
    decltype(&secret_service_search_sync) service_search_sync;
    decltype(&secret_service_clear_sync) service_clear_sync;
    decltype(&secret_service_store_sync) service_store_sync;
    decltype(&secret_collection_for_alias_sync) collection_for_alias_sync;
    decltype(&secret_collection_get_locked) collection_get_locked;
    decltype(&secret_item_get_secret) item_get_secret;
    decltype(&secret_value_new) value_new;
    decltype(&secret_value_get) value_get;
    decltype(&secret_value_unref) value_unref;
    // GLib, found through libsecret's own dependencies.
    decltype(&g_object_unref) object_unref;
    decltype(&g_error_free) error_free;
    decltype(&g_cancellable_new) cancellable_new;
    decltype(&g_cancellable_cancel) cancellable_cancel;
    decltype(&g_hash_table_new_full) hash_table_new_full;
    decltype(&g_hash_table_insert) hash_table_insert;
    decltype(&g_hash_table_unref) hash_table_unref;
    decltype(&g_str_hash) str_hash;
    decltype(&g_str_equal) str_equal;
    decltype(&g_strdup) string_dup;
    decltype(&g_free) free;
    decltype(&g_list_free_full) list_free_full;
};

// Loaded by the first caller, on any thread; the functions stay valid for the life of the
// process. nullptr when libsecret or one of the functions is missing, which the keychain
// treats as a Secret Service it cannot reach.
const SecretLibrary* secretLibrary();

}  // namespace usagekit::Keychain
