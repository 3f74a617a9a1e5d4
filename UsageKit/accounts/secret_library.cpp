#include "accounts/secret_library.h"

#include "core/platform/shared_library.h"

namespace usagekit::Keychain {

namespace {

void findFunctions(SharedLibrary& library, SecretLibrary& f) {
    library.find(f.service_get_sync, "secret_service_get_sync");
    library.find(f.service_search_sync, "secret_service_search_sync");
    library.find(f.service_clear_sync, "secret_service_clear_sync");
    library.find(f.service_store_sync, "secret_service_store_sync");
    library.find(f.collection_for_alias_sync, "secret_collection_for_alias_sync");
    library.find(f.collection_get_locked, "secret_collection_get_locked");
    library.find(f.item_get_secret, "secret_item_get_secret");
    library.find(f.value_new, "secret_value_new");
    library.find(f.value_get, "secret_value_get");
    library.find(f.value_unref, "secret_value_unref");
    library.find(f.object_unref, "g_object_unref");
    library.find(f.error_free, "g_error_free");
    library.find(f.cancellable_new, "g_cancellable_new");
    library.find(f.cancellable_cancel, "g_cancellable_cancel");
    library.find(f.hash_table_new_full, "g_hash_table_new_full");
    library.find(f.hash_table_insert, "g_hash_table_insert");
    library.find(f.hash_table_unref, "g_hash_table_unref");
    library.find(f.str_hash, "g_str_hash");
    library.find(f.str_equal, "g_str_equal");
    library.find(f.string_dup, "g_strdup");
    library.find(f.free, "g_free");
    library.find(f.list_free_full, "g_list_free_full");
}

}  // namespace

const SecretLibrary* secretLibrary() {
    static const auto loaded = SharedLibrary::load<SecretLibrary>(
        "libsecret-1.so.0", "Keys in the Secret Service", findFunctions);
    return loaded.problem.empty() ? &loaded.functions : nullptr;
}

}  // namespace usagekit::Keychain
