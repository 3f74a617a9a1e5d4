#include "accounts/keychain.h"

#include "core/paths.h"
#include "core/text.h"

#include <libsecret/secret.h>
#include <simdjson.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace usagekit::Keychain {

namespace {

// Long enough for a D-Bus activation of the keyring daemon, short enough that a missing
// or stuck Secret Service does not stall a refresh or the settings screen.
constexpr auto kPatience = std::chrono::seconds(5);
constexpr size_t kShortKey = 11;

// Items match on attributes alone, so items written by other tools with the same
// attributes are found, and ours carry the xdg:schema attribute for tools that look.
const SecretSchema kSchema = {"app.tally.Tally",
                              SECRET_SCHEMA_DONT_MATCH_NAME,
                              {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
                               {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
                               {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
                              0,
                              nullptr,
                              nullptr,
                              nullptr,
                              nullptr,
                              nullptr,
                              nullptr,
                              nullptr};

template <class T>
struct GUnref {
    void operator()(T* object) const {
        if (object) g_object_unref(object);
    }
};
template <class T>
using GPtr = std::unique_ptr<T, GUnref<T>>;

struct ErrorSlot {
    GError* error = nullptr;
    ~ErrorSlot() {
        if (error) g_error_free(error);
    }
};

// Cancels every call made with its cancellable once kPatience has passed.
class Deadline {
  public:
    Deadline() : m_cancellable(g_cancellable_new()) {
        m_watch = std::thread([this] {
            std::unique_lock lock(m_mutex);
            if (!m_done.wait_for(lock, kPatience, [this] { return m_finished; }))
                g_cancellable_cancel(m_cancellable.get());
        });
    }
    ~Deadline() {
        {
            std::lock_guard lock(m_mutex);
            m_finished = true;
        }
        m_done.notify_all();
        m_watch.join();
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    GCancellable* cancellable() const { return m_cancellable.get(); }

  private:
    GPtr<GCancellable> m_cancellable;
    std::mutex m_mutex;
    std::condition_variable m_done;
    bool m_finished = false;
    std::thread m_watch;
};

using Attributes = std::unique_ptr<GHashTable, decltype(&g_hash_table_unref)>;

Attributes attributes(const std::vector<std::pair<const char*, std::string>>& pairs) {
    Attributes table(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free),
                     g_hash_table_unref);
    for (auto& [name, value] : pairs)
        g_hash_table_insert(table.get(), g_strdup(name), g_strdup(value.c_str()));
    return table;
}

GPtr<SecretService> connect(const Deadline& deadline) {
    ErrorSlot slot;
    return GPtr<SecretService>(
        secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, deadline.cancellable(), &slot.error));
}

// The first unlocked matching item's secret when it is non-empty UTF-8. Locked items are
// left alone: unlocking would put a prompt in front of the user.
std::optional<std::string> lookup(const Attributes& match) {
    Deadline deadline;
    auto service = connect(deadline);
    if (!service) return std::nullopt;
    ErrorSlot slot;
    GList* found = secret_service_search_sync(
        service.get(), nullptr, match.get(),
        static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | SECRET_SEARCH_LOAD_SECRETS),
        deadline.cancellable(), &slot.error);
    std::optional<std::string> result;
    for (GList* node = found; node && !result; node = node->next) {
        SecretValue* value = secret_item_get_secret(SECRET_ITEM(node->data));
        if (!value) continue;
        gsize length = 0;
        const gchar* bytes = secret_value_get(value, &length);
        if (bytes && length > 0 && simdjson::validate_utf8(bytes, length))
            result = std::string(bytes, length);
        secret_value_unref(value);
    }
    g_list_free_full(found, g_object_unref);
    return result;
}

std::string lastCharacters(const std::string& text, size_t count) {
    const size_t total = Text::characterCount(text);
    if (total <= count) return text;
    return text.substr(Text::firstCharacters(text, total - count).size());
}

}  // namespace

std::string environmentName(const std::string& account) {
    std::string name = "TALLY_";
    for (char c : account) {
        if (c == '-')
            name += '_';
        else if (c >= 'a' && c <= 'z')
            name += static_cast<char>(c - 'a' + 'A');
        else
            name += c;
    }
    return name;
}

std::optional<std::string> get(const std::string& account) {
    std::string fromEnvironment = TallyPaths::environment(environmentName(account).c_str());
    if (!fromEnvironment.empty()) return fromEnvironment;
    return lookup(attributes({{"service", kService}, {"account", account}}));
}

bool has(const std::string& account) {
    return get(account).has_value();
}

void set(const std::string& value, const std::string& account) {
    Deadline deadline;
    auto service = connect(deadline);
    if (!service) return;
    auto match = attributes({{"service", kService}, {"account", account}});
    {
        ErrorSlot slot;
        secret_service_clear_sync(service.get(), nullptr, match.get(), deadline.cancellable(),
                                  &slot.error);
    }
    if (value.empty()) return;

    // A locked collection would have libsecret ask the user to unlock it; drop the write.
    ErrorSlot collectionSlot;
    GPtr<SecretCollection> collection(secret_collection_for_alias_sync(
        service.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, deadline.cancellable(),
        &collectionSlot.error));
    if (collection && secret_collection_get_locked(collection.get())) return;

    SecretValue* secret =
        secret_value_new(value.data(), static_cast<gssize>(value.size()), "text/plain");
    const std::string label = "Tally: " + account;
    ErrorSlot slot;
    secret_service_store_sync(service.get(), &kSchema, match.get(), SECRET_COLLECTION_DEFAULT,
                              label.c_str(), secret, deadline.cancellable(), &slot.error);
    secret_value_unref(secret);
}

std::optional<std::string> hint(const std::string& account) {
    auto key = get(account);
    if (!key) return std::nullopt;
    const size_t length = Text::characterCount(*key);
    if (length < kShortKey) {
        std::string bullets;
        for (size_t i = 0; i < length; ++i)
            bullets += "\u2022";
        return bullets;
    }
    return Text::firstCharacters(*key, 6) + "\u2026" + lastCharacters(*key, 4);
}

std::optional<std::string> foreign(const std::string& service) {
    return lookup(attributes({{"service", service}}));
}

}  // namespace usagekit::Keychain
