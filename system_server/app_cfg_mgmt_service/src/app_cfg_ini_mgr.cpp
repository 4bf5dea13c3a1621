#include "app_cfg_ini_mgr.h"

#include <Poco/StringTokenizer.h>
#include <Poco/Util/IniFileConfiguration.h>

#include <algorithm>
#include <sstream>

#include "acm_file.h"
#include "app_cfg_limits.h"
#include "app_cfg_log.h"

namespace SystemServer {

namespace {

constexpr char NAME_VALUE_SEPARATOR = '=';

// The library's loader does not end when its stream turns bad; so it is given text that was read before.
std::shared_ptr<std::istream> OpenText(const std::string& path,
                                       const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr) {
    if (cryptoMgr) {
        return cryptoMgr->GetDecryptStream();
    }
    return std::make_shared<std::istringstream>(ReadRegularFile(path));
}

} // namespace

AppCfgIniMgr::AppCfgIniMgr(const std::string& path, const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr) :
    AppCfgMgr(path, cryptoMgr) {
    const std::shared_ptr<std::istream> text = OpenText(path, cryptoMgr);
    text->seekg(0, std::ios::end);
    m_bytes = static_cast<uint64_t>(text->tellg());
    text->seekg(0);
    m_config = new Poco::Util::IniFileConfiguration(*text);
}

int32_t AppCfgIniMgr::SetRawData(const std::string& section, const std::string& data) {
    if (std::count(data.begin(), data.end(), NAME_VALUE_SEPARATOR) != 1) {
        ACM_LOG(ACM_ERROR, "invaild grammar[num of '=' not equal to 1]");
        return -1;
    }
    if (data.front() == NAME_VALUE_SEPARATOR || data.back() == NAME_VALUE_SEPARATOR) {
        ACM_LOG(ACM_ERROR, "invaild grammar['=' at the beginning or end]");
        return -1;
    }
    const Poco::StringTokenizer pieces(data, std::string(1, NAME_VALUE_SEPARATOR),
                                       Poco::StringTokenizer::TOK_TRIM |
                                           Poco::StringTokenizer::TOK_IGNORE_EMPTY);
    const AcmLock document(m_documentMutex);
    if (pieces.count() > 0 && !m_config->hasProperty(pieces[0])) {
        ACM_LOG(ACM_ERROR, "query key[%s] not found.", pieces[0].c_str());
        return -1;
    }
    // A value of blanks only gives no second piece: the tokenizer then throws Poco::RangeException.
    const std::string key = section + "." + pieces[0];
    if (!Admits(key, pieces[1])) {
        ACM_LOG(ACM_ERROR, "value of key[%s] cannot be stored.", key.c_str());
        return -1;
    }
    m_config->setString(key, pieces[1]);
    return 0;
}

int32_t AppCfgIniMgr::GetRawData(const std::string&, std::string&) {
    return 0;
}

std::shared_ptr<AppCfgMgr> AppCfgIniMgr::DeepClone(const std::string& path) {
    return std::make_shared<AppCfgIniMgr>(path, CloneCryptoMgr(path));
}

bool AppCfgIniMgr::Admits(const std::string& key, const std::string& value) {
    const bool exists = m_config->hasProperty(key);
    const uint64_t before = exists ? m_config->getRawString(key).size() : 0;
    const uint64_t bytes = m_bytes + value.size() + (exists ? 0 : key.size()) - before;
    if (bytes > MAX_DOCUMENT_BYTES) {
        return false;
    }
    m_bytes = bytes;
    return true;
}

} // namespace SystemServer
