// The C interface: each function is the call of the C++ library that has its name, with what it throws turned
// into a result. A structure's size says how much of it the caller knows.
#include "appcfg.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <optional>

#include "appcfg/connection.h"
#include "appcfg/error.h"

struct appcfg_connection {
    appcfg::Connection connection;
};

struct appcfg_item {
    appcfg::Item item;
};

namespace {

static_assert(static_cast<int>(appcfg::Request::CHANGE_KEY) == APPCFG_CHANGE_KEY);

appcfg_result Fill(appcfg_error* error, appcfg_result result, const char* message,
                   int request = APPCFG_NO_REQUEST, int status = 0) noexcept {
    if (error == nullptr) {
        return result;
    }
    appcfg_error filled{};
    filled.size = std::min(error->size, sizeof filled);
    filled.result = result;
    filled.request = request;
    filled.status = status;
    std::strncpy(filled.message, message, sizeof filled.message - 1);
    std::memcpy(error, &filled, filled.size);
    return result;
}

// What the exception in flight means.
appcfg_result Told(appcfg_error* error) noexcept {
    try {
        throw;
    } catch (const appcfg::RequestRefused& fault) {
        return Fill(error, APPCFG_REFUSED, fault.what(), static_cast<int>(fault.GetRequest()),
                    fault.Status());
    } catch (const appcfg::TimeoutError& fault) {
        return Fill(error, APPCFG_TIMED_OUT, fault.what());
    } catch (const appcfg::ConnectionError& fault) {
        return Fill(error, APPCFG_NO_CONNECTION, fault.what());
    } catch (const appcfg::ValueError& fault) {
        return Fill(error, APPCFG_NO_SUCH_VALUE, fault.what());
    } catch (const std::bad_alloc& fault) {
        return Fill(error, APPCFG_NO_MEMORY, fault.what());
    } catch (const std::exception& fault) {
        return Fill(error, APPCFG_INVALID, fault.what());
    } catch (...) {
        return Fill(error, APPCFG_INVALID, "a fault without a name");
    }
}

template <typename Call>
appcfg_result Does(appcfg_error* error, Call call) noexcept {
    try {
        call();
        return APPCFG_DONE;
    } catch (...) {
        return Told(error);
    }
}

// What the call returns, or otherwise.
template <typename Value, typename Call>
Value Yields(appcfg_error* error, Value otherwise, Call call) noexcept {
    try {
        return call();
    } catch (...) {
        Told(error);
        return otherwise;
    }
}

// A null pointer is an argument that cannot be sent.
template <typename T>
T& Given(T* pointer) {
    if (pointer == nullptr) {
        throw appcfg::InvalidArgument("a null pointer");
    }
    return *pointer;
}

std::string Text(const char* text) {
    return &Given(text);
}

std::string TextOrNone(const char* text) {
    return text == nullptr ? "" : text;
}

char* Copy(const std::string& text) {
    auto* const copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

std::optional<appcfg::EncryptionKey> KeyOf(const uint8_t* key, const uint8_t* iv) {
    if (key == nullptr) {
        return std::nullopt;
    }
    std::optional<appcfg::EncryptionKey> result(std::in_place);
    std::copy_n(key, result->key.size(), result->key.begin());
    std::copy_n(&Given(iv), result->iv.size(), result->iv.begin());
    return result;
}

appcfg::ItemDescription DescriptionOf(const appcfg_description& given) {
    appcfg_description known{};
    std::memcpy(&known, &given, std::min(given.size, sizeof known));
    appcfg::ItemDescription description{appcfg::Handle(Text(known.owner), Text(known.name), known.index)};
    description.storage = static_cast<SystemServer::ConfigStorageType>(known.storage);
    description.path = TextOrNone(known.path);
    description.backupPath = TextOrNone(known.backup_path);
    description.defaultPath = TextOrNone(known.default_path);
    description.saveStrategy = static_cast<SystemServer::ConfigSaveStrategy>(known.save_strategy);
    description.backupStrategy = static_cast<SystemServer::ConfigBackupStrategy>(known.backup_strategy);
    description.encryption = KeyOf(known.key, known.iv);
    return description;
}

} // namespace

extern "C" {

appcfg_connection* appcfg_connect(double timeout_seconds, appcfg_error* error) {
    return Yields<appcfg_connection*>(error, nullptr, [&] {
        const std::chrono::duration<double> seconds(std::clamp(timeout_seconds, 0.0, 1e6));
        const auto timeout = std::chrono::duration_cast<std::chrono::milliseconds>(seconds);
        return new appcfg_connection{
            appcfg::Connection(timeout_seconds == 0 ? appcfg::Connection::DEFAULT_TIMEOUT : timeout)};
    });
}

void appcfg_close(appcfg_connection* connection) {
    delete connection;
}

void appcfg_keep_items(appcfg_connection* connection, void (*told)(const char*, void*), void* context) {
    Does(nullptr, [&] {
        Given(connection).connection.KeepItems([told, context](const std::string& reason) {
            if (told != nullptr) {
                told(reason.c_str(), context);
            }
        });
    });
}

appcfg_item* appcfg_create(appcfg_connection* connection, const appcfg_description* description,
                           appcfg_error* error) {
    return Yields<appcfg_item*>(error, nullptr, [&] {
        return new appcfg_item{Given(connection).connection.Create(DescriptionOf(Given(description)))};
    });
}

appcfg_item* appcfg_open(appcfg_connection* connection, const char* owner, const char* name, uint32_t index,
                         appcfg_error* error) {
    return Yields<appcfg_item*>(error, nullptr, [&] {
        return new appcfg_item{
            Given(connection).connection.Open(appcfg::Handle(Text(owner), Text(name), index))};
    });
}

void appcfg_item_free(appcfg_item* item) {
    delete item;
}

void appcfg_item_release(appcfg_item* item) {
    if (item != nullptr) {
        item->item.Release();
        delete item;
    }
}

char* appcfg_get(appcfg_item* item, const char* key, appcfg_error* error) {
    return Yields<char*>(error, nullptr, [&] { return Copy(Given(item).item.Get(Text(key))); });
}

appcfg_result appcfg_get_many(appcfg_item* item, const char* const* keys, size_t count, char** values,
                              appcfg_error* error) {
    return Does(error, [&] {
        std::vector<std::string> names;
        std::transform(&Given(keys), keys + count, std::back_inserter(names), Text);
        const std::vector<std::string> got = Given(item).item.GetMany(names);
        std::fill_n(&Given(values), count, nullptr);
        try {
            std::transform(got.begin(), got.end(), values, Copy);
        } catch (...) {
            std::for_each_n(values, count, appcfg_free);
            throw;
        }
    });
}

char* appcfg_get_string(appcfg_item* item, const char* key, const char* otherwise, appcfg_error* error) {
    char* const value = appcfg_get(item, key, error);
    return value != nullptr || otherwise == nullptr
               ? value
               : Yields<char*>(error, nullptr, [&] { return Copy(otherwise); });
}

int64_t appcfg_get_int64(appcfg_item* item, const char* key, int64_t otherwise, appcfg_error* error) {
    return Yields(error, otherwise, [&] { return Given(item).item.GetInt(Text(key)); });
}

double appcfg_get_double(appcfg_item* item, const char* key, double otherwise, appcfg_error* error) {
    return Yields(error, otherwise, [&] { return Given(item).item.GetDouble(Text(key)); });
}

int appcfg_get_bool(appcfg_item* item, const char* key, int otherwise, appcfg_error* error) {
    return Yields(error, otherwise, [&] { return Given(item).item.GetBool(Text(key)) ? 1 : 0; });
}

appcfg_result appcfg_set(appcfg_item* item, const char* key, const char* value, appcfg_error* error) {
    return Does(error, [&] { Given(item).item.Set(Text(key), Text(value)); });
}

appcfg_result appcfg_set_many(appcfg_item* item, const char* const* keys, const char* const* values,
                              size_t count, appcfg_error* error) {
    return Does(error, [&] {
        std::vector<std::pair<std::string, std::string>> pairs;
        std::transform(&Given(keys), keys + count, &Given(values), std::back_inserter(pairs),
                       [](const char* key, const char* value) { return std::pair(Text(key), Text(value)); });
        Given(item).item.SetMany(pairs);
    });
}

appcfg_result appcfg_set_int64(appcfg_item* item, const char* key, int64_t value, appcfg_error* error) {
    return Does(error, [&] { Given(item).item.SetInt(Text(key), value); });
}

appcfg_result appcfg_set_double(appcfg_item* item, const char* key, double value, appcfg_error* error) {
    return Does(error, [&] { Given(item).item.SetDouble(Text(key), value); });
}

appcfg_result appcfg_set_bool(appcfg_item* item, const char* key, int value, appcfg_error* error) {
    return Does(error, [&] { Given(item).item.SetBool(Text(key), value != 0); });
}

char* appcfg_raw_get(appcfg_item* item, const char* key, appcfg_error* error) {
    return Yields<char*>(error, nullptr, [&] { return Copy(Given(item).item.GetRaw(Text(key))); });
}

appcfg_result appcfg_raw_set(appcfg_item* item, const char* key, const char* data, appcfg_error* error) {
    return Does(error, [&] { Given(item).item.SetRaw(Text(key), Text(data)); });
}

appcfg_result appcfg_restore(appcfg_item* item, appcfg_error* error) {
    return Does(error, [&] { Given(item).item.Restore(); });
}

appcfg_result appcfg_change_key(appcfg_item* item, const uint8_t* key, const uint8_t* iv,
                                appcfg_error* error) {
    return Does(error, [&] {
        const std::optional<appcfg::EncryptionKey> changed = KeyOf(key, iv);
        changed ? Given(item).item.ChangeKey(*changed) : Given(item).item.ChangeToPlain();
    });
}

appcfg_result appcfg_delete(appcfg_item* item, appcfg_error* error) {
    return Does(error, [&] { Given(item).item.Delete(); });
}

const char* appcfg_status_meaning(appcfg_request request, int status) {
    return appcfg::StatusMeaning(static_cast<appcfg::Request>(request), static_cast<uint16_t>(status));
}

void appcfg_free(char* text) {
    std::free(text);
}

} // extern "C"
