// The records that clients and the service exchange: little-endian, read in place from the message.
#ifndef APP_CFG_WIRE_H
#define APP_CFG_WIRE_H

#include <cstddef>
#include <cstdint>

#include "app_cfg_types.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "records are read in place and are little-endian");

namespace SystemServer {

// The service's name below the framework's root.
constexpr char APP_CFG_SERVICE_NAME[] = "storage.paas.orb";

constexpr size_t APP_CFG_NAME_SIZE = 32;
constexpr size_t APP_CFG_PATH_SIZE = 256;
constexpr size_t APP_CFG_QUERY_SIZE = 12288;
constexpr size_t APP_CFG_RAW_QUERY_SIZE = 128;

// A client's name for one item. Text fields end at their first NUL or at the end of the field.
struct AppCfgHndl {
    char ownerName[APP_CFG_NAME_SIZE];
    char cfgName[APP_CFG_NAME_SIZE];
    uint32_t cfgIndex;
    uint32_t reserved;
};
static_assert(sizeof(AppCfgHndl) == 72 && alignof(AppCfgHndl) == 4);
static_assert(offsetof(AppCfgHndl, cfgName) == 32);
static_assert(offsetof(AppCfgHndl, cfgIndex) == 64);

// Raw key and IV bytes, used in full, zero bytes included.
struct AppCfgCryptoParam {
    uint8_t key[32];
    uint8_t iv[16];
};
static_assert(sizeof(AppCfgCryptoParam) == 48);
static_assert(offsetof(AppCfgCryptoParam, iv) == 32);

struct AppCfgCreateReq {
    AppCfgHndl hndl;
    ConfigStorageType storageType;
    ConfigCryptoType cryptoType;
    ConfigSaveStrategy saveStrategy;
    ConfigBackupStrategy backupStrategy;
    char cfgPath[APP_CFG_PATH_SIZE];
    char backupPath[APP_CFG_PATH_SIZE];
    char defaultPath[APP_CFG_PATH_SIZE];
    AppCfgCryptoParam cryptoParam;
};
static_assert(sizeof(AppCfgCreateReq) == 904);
static_assert(offsetof(AppCfgCreateReq, storageType) == 72);
static_assert(offsetof(AppCfgCreateReq, cfgPath) == 88);
static_assert(offsetof(AppCfgCreateReq, backupPath) == 344);
static_assert(offsetof(AppCfgCreateReq, defaultPath) == 600);
static_assert(offsetof(AppCfgCreateReq, cryptoParam) == 856);

struct AppCfgDataReq {
    AppCfgHndl hndl;
    char query[APP_CFG_QUERY_SIZE];
};
static_assert(sizeof(AppCfgDataReq) == 12360);
static_assert(offsetof(AppCfgDataReq, query) == 72);

// The head of a raw request and of a raw get's reply; the data follows it. dataLen counts the NUL.
struct AppCfgRawDataReq {
    AppCfgHndl hndl;
    char query[APP_CFG_RAW_QUERY_SIZE];
    uint32_t dataLen;
};
static_assert(sizeof(AppCfgRawDataReq) == 204);
static_assert(offsetof(AppCfgRawDataReq, query) == 72);
static_assert(offsetof(AppCfgRawDataReq, dataLen) == 200);

struct AppCfgCryptoUpdateReq {
    AppCfgHndl hndl;
    ConfigCryptoType cryptoType;
    AppCfgCryptoParam cryptoParam;
};
static_assert(sizeof(AppCfgCryptoUpdateReq) == 124);
static_assert(offsetof(AppCfgCryptoUpdateReq, cryptoType) == 72);
static_assert(offsetof(AppCfgCryptoUpdateReq, cryptoParam) == 76);

} // namespace SystemServer

#endif
