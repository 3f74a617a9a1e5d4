#include "accounts/keychain.h"

#include "accounts/secret_library.h"
#include "core/paths.h"
#include "core/text.h"

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

// A GObject reference, dropped with the library's g_object_unref.
template <class T>
using GPtr = std::unique_ptr<T, decltype(&g_object_unref)>;

template <class T>
GPtr<T> owned(const SecretLibrary& lib, T* object) {
    return GPtr<T>(object, lib.object_unref);
}

struct ErrorSlot {
    explicit ErrorSlot(const SecretLibrary& lib) : m_lib(lib) {}
    ~ErrorSlot() {
        if (error) m_lib.error_free(error);
    }
    GError* error = nullptr;

  private:
    const SecretLibrary& m_lib;
};

// Cancels every call made with its cancellable once kPatience has passed.
class Deadline {
  public:
    explicit Deadline(const SecretLibrary& lib) : m_cancellable(owned(lib, lib.cancellable_new())) {
        m_watch = std::thread([this, &lib] {
            std::unique_lock lock(m_mutex);
            if (!m_done.wait_for(lock, kPatience, [this] { return m_finished; }))
                lib.cancellable_cancel(m_cancellable.get());
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
using Pairs = std::vector<std::pair<const char*, std::string>>;

Attributes attributes(const SecretLibrary& lib, const Pairs& pairs) {
    Attributes table(lib.hash_table_new_full(lib.str_hash, lib.str_equal, lib.free, lib.free),
                     lib.hash_table_unref);
    for (auto& [name, value] : pairs)
        lib.hash_table_insert(table.get(), lib.string_dup(name), lib.string_dup(value.c_str()));
    return table;
}

GPtr<SecretService> connect(const SecretLibrary& lib, const Deadline& deadline) {
    ErrorSlot slot(lib);
    return owned(lib, lib.service_get_sync(SECRET_SERVICE_OPEN_SESSION, deadline.cancellable(),
                                           &slot.error));
}

// The first unlocked matching item's secret when it is non-empty UTF-8. Locked items are
// left alone: unlocking would put a prompt in front of the user.
std::optional<std::string> lookup(const Pairs& pairs) {
    const SecretLibrary* library = secretLibrary();
    if (!library) return std::nullopt;
    const SecretLibrary& lib = *library;
    Deadline deadline(lib);
    auto service = connect(lib, deadline);
    if (!service) return std::nullopt;
    auto match = attributes(lib, pairs);
    ErrorSlot slot(lib);
    GList* found = lib.service_search_sync(
        service.get(), nullptr, match.get(),
        static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | SECRET_SEARCH_LOAD_SECRETS),
        deadline.cancellable(), &slot.error);
    std::optional<std::string> result;
    for (GList* node = found; node && !result; node = node->next) {
        // A search answers with items only.
        SecretValue* value = lib.item_get_secret(static_cast<SecretItem*>(node->data));
        if (!value) continue;
        gsize length = 0;
        const gchar* bytes = lib.value_get(value, &length);
        if (bytes && length > 0 && simdjson::validate_utf8(bytes, length))
            result = std::string(bytes, length);
        lib.value_unref(value);
    }
    lib.list_free_full(found, lib.object_unref);
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
    return lookup({{"service", kService}, {"account", account}});
}

bool has(const std::string& account) {
    return get(account).has_value();
}

void set(const std::string& value, const std::string& account) {
    const SecretLibrary* library = secretLibrary();
    if (!library) return;
    const SecretLibrary& lib = *library;
    Deadline deadline(lib);
    auto service = connect(lib, deadline);
    if (!service) return;
    auto match = attributes(lib, {{"service", kService}, {"account", account}});
    {
        ErrorSlot slot(lib);
        lib.service_clear_sync(service.get(), nullptr, match.get(), deadline.cancellable(),
                               &slot.error);
    }
    if (value.empty()) return;

    // A locked collection would have libsecret ask the user to unlock it; drop the write.
    ErrorSlot collectionSlot(lib);
    auto collection =
        owned(lib, lib.collection_for_alias_sync(service.get(), SECRET_COLLECTION_DEFAULT,
                                                 SECRET_COLLECTION_NONE, deadline.cancellable(),
                                                 &collectionSlot.error));
    if (collection && lib.collection_get_locked(collection.get())) return;

    SecretValue* secret =
        lib.value_new(value.data(), static_cast<gssize>(value.size()), "text/plain");
    const std::string label = "Tally: " + account;
    ErrorSlot slot(lib);
    lib.service_store_sync(service.get(), &kSchema, match.get(), SECRET_COLLECTION_DEFAULT,
                           label.c_str(), secret, deadline.cancellable(), &slot.error);
    lib.value_unref(secret);
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
    return lookup({{"service", service}});
}

}  // namespace usagekit::Keychain
