// Request records filled from checked values.
#ifndef APPCFG_RECORDS_H
#define APPCFG_RECORDS_H

#include <cstddef>
#include <cstring>
#include <string>

#include "app_cfg_wire.h"
#include "appcfg/handle.h"
#include "appcfg/item_description.h"

namespace appcfg {

// A record that may hold a key: overwritten when it goes away.
template <class Record>
class SecretRecord {
public:
    static constexpr size_t SIZE = sizeof(Record);

    SecretRecord() : m_record{} {}
    SecretRecord(const SecretRecord&) = default;
    SecretRecord& operator=(const SecretRecord&) = default;
    ~SecretRecord() { explicit_bzero(&m_record, sizeof(m_record)); }

    Record& Get() { return m_record; }
    const Record& Get() const { return m_record; }

private:
    Record m_record;
};

SystemServer::AppCfgHndl MakeHndl(const Handle& handle);

// InvalidArgument for a path that is too long for its field or holds a NUL, or an empty file path.
SecretRecord<SystemServer::AppCfgCreateReq> MakeCreateReq(const ItemDescription& description);

SystemServer::AppCfgDataReq MakeDataReq(const Handle& handle, const std::string& query);

// InvalidArgument for a key that is too long or holds a NUL.
SystemServer::AppCfgRawDataReq MakeRawDataReq(const Handle& handle, const std::string& key);

// A null key means plain files.
SecretRecord<SystemServer::AppCfgCryptoUpdateReq> MakeCryptoUpdateReq(const Handle& handle,
                                                                      const EncryptionKey* key);

} // namespace appcfg

#endif
