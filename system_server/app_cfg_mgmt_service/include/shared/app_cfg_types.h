// Values that the service and its clients share: URIs, methods, status codes and enumerations.
#ifndef APP_CFG_TYPES_H
#define APP_CFG_TYPES_H

#include <cstdint>

namespace SystemServer {

enum AppCfgUri : uint16_t {
    APP_CFG_URI_ITEM = 0,
    APP_CFG_URI_DATA = 1,
    APP_CFG_URI_RAW_DATA = 2,
    APP_CFG_URI_DEFAULT = 3,
    APP_CFG_URI_CRYPTO_PARAM = 4,
    APP_CFG_URI_COUNT,
};

enum AppCfgMethod : uint8_t {
    APP_CFG_METHOD_CREATE = 1,
    APP_CFG_METHOD_GET = 2,
    APP_CFG_METHOD_SET = 3,
    APP_CFG_METHOD_DELETE = 4,
};

enum AppCfgStatus : uint16_t {
    APP_CFG_STATUS_OK = 200,
    APP_CFG_STATUS_BAD_REQUEST = 400,
    APP_CFG_STATUS_FORBIDDEN = 403,
    APP_CFG_STATUS_NOT_FOUND = 404,
    APP_CFG_STATUS_INTERNAL_ERROR = 500,
};

// The document format of an item's file. 2 is not in use.
enum class ConfigStorageType : int32_t { INI = 0, XML = 1, JSON = 3 };

// When a changed item is saved, and when its backup is refreshed. Any other value: never by itself.
enum class ConfigStrategy : int32_t { NONE = 0, INSTANT = 1, DELAY = 2, TIMING = 3 };
using ConfigSaveStrategy = ConfigStrategy;
using ConfigBackupStrategy = ConfigStrategy;

enum class ConfigCryptoType : int32_t { NONE = 0, AES_256_CBC = 1 };

} // namespace SystemServer

#endif
