#include "app_cfg_mgr.h"

#include <Poco/Exception.h>
#include <Poco/StringTokenizer.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "acm_cut_files.h"
#include "acm_descriptor.h"
#include "acm_file.h"
#include "acm_room.h"
#include "acm_value_lookup.h"
#include "app_cfg_fault.h"
#include "app_cfg_limits.h"
#include "app_cfg_log.h"

namespace SystemServer {

namespace {

constexpr char LOG_FILE[] = "system_server/app_cfg_mgmt_service/src/app_cfg_mgr";

constexpr char ITEM_SEPARATOR[] = ",";
constexpr char KEY_VALUE_SEPARATOR = '|';

void RequireDocument(const Poco::AutoPtr<Poco::Util::AbstractConfiguration>& config) {
    if (config.isNull()) {
        throw Poco::NullPointerException("no document");
    }
}

bool IsDevice(int fd) {
    struct stat status = {};
    return fstat(fd, &status) == 0 && !S_ISREG(status.st_mode);
}

} // namespace

AppCfgMgr::AppCfgMgr(const std::string& cfgPath, const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr) :
    m_cfgPath(cfgPath), m_cryptoMgr(cryptoMgr) {
    std::unique_lock<std::mutex> lock(m_notifyMutex);
    m_notifyThread = std::make_shared<std::thread>(&AppCfgMgr::RunNotifyThread, this);
    m_notifyIdle.wait(lock, [this] { return m_notifyWaiting; });
}

AppCfgMgr::~AppCfgMgr() {
    m_notifyStop = true;
    {
        const std::lock_guard<std::mutex> lock(m_notifyMutex);
        m_notifyQuit = true;
        m_notifyCond.notify_one();
    }
    m_notifyThread->join();
}

int32_t AppCfgMgr::GetData(const std::string& query, std::vector<std::string>& values) const {
    const Poco::StringTokenizer keys(
        query, ITEM_SEPARATOR, Poco::StringTokenizer::TOK_IGNORE_EMPTY | Poco::StringTokenizer::TOK_TRIM);
    const std::lock_guard<std::mutex> document(m_documentMutex);
    AcmWorkBudget budget;
    for (const std::string& key : keys) {
        RequireDocument(m_config);
        values.push_back(LookUpValue(*m_config, key, budget));
    }
    return 0;
}

int32_t AppCfgMgr::SetData(const std::string& query) {
    ACM_LOG(ACM_TRACE, "queryString : [%s]", query.c_str());
    {
        const Poco::StringTokenizer items(query, ITEM_SEPARATOR, Poco::StringTokenizer::TOK_IGNORE_EMPTY);
        const std::lock_guard<std::mutex> document(m_documentMutex);
        AcmWorkBudget budget;
        for (const std::string& item : items) {
            if (!SetItem(item, budget)) {
                return -1;
            }
        }
    }
    const std::lock_guard<std::mutex> lock(m_notifyMutex);
    m_notifyPending = true;
    m_notifyCond.notify_one();
    return 0;
}

bool AppCfgMgr::SetItem(const std::string& item, AcmWorkBudget& budget) {
    if (std::count(item.begin(), item.end(), KEY_VALUE_SEPARATOR) != 1) {
        ACM_LOG(ACM_ERROR, "invaild grammar[num of Key Value Separator not equal to 1]");
        return false;
    }
    // Only the beginning: an item that ends with the separator sets an empty value, and clients use it.
    if (item.front() == KEY_VALUE_SEPARATOR) {
        ACM_LOG(ACM_ERROR, "invaild grammar[Key Value Separator at the beginning or end]");
        return false;
    }
    RequireDocument(m_config);
    const size_t separator = item.find(KEY_VALUE_SEPARATOR);
    const std::string key = item.substr(0, separator);
    const std::string value = item.substr(separator + 1);
    if (!HasValue(*m_config, key, budget)) {
        ACM_LOG(ACM_ERROR, "query key[%s] not found.", key.c_str());
        return false;
    }
    if (!Admits(key, value)) {
        ACM_LOG(ACM_ERROR, "value of key[%s] cannot be stored.", key.c_str());
        return false;
    }
    m_config->setString(key, value);
    return true;
}

void AppCfgMgr::Save() {
    const std::lock_guard<std::mutex> lock(m_saveMutex);
    ACM_LOG(ACM_TRACE, "save [%s]...", m_cfgPath.c_str());
    SaveCfgToPath(m_cfgPath);
    ACM_LOG(ACM_TRACE, "save [%s] done.", m_cfgPath.c_str());
}

void AppCfgMgr::Backup() {
    const std::lock_guard<std::mutex> lock(m_backupMutex);
    const std::string backupPath = GetBackupPath();
    ACM_LOG(ACM_TRACE, "backup [%s] to [%s]...", m_cfgPath.c_str(), backupPath.c_str());
    SaveCfgToPath(backupPath);
    ACM_LOG(ACM_TRACE, "backup [%s] to [%s] done.", m_cfgPath.c_str(), backupPath.c_str());
}

void AppCfgMgr::Restore() {
    const std::string defaultPath = GetDefaultPath();
    if (defaultPath.empty()) {
        return;
    }
    if (FileExists(defaultPath) && IsCut(defaultPath)) {
        throw Poco::ReadFileException("cut by an earlier write", defaultPath);
    }
    Replace(defaultPath, m_cfgPath);
    // Else a later recovery from the backup would bring the old values back.
    const std::string backupPath = GetBackupPath();
    if (!backupPath.empty()) {
        Replace(defaultPath, backupPath);
    }
}

void AppCfgMgr::Save(std::ostream&) {}

bool AppCfgMgr::IsConfigWritable() {
    return false;
}

void AppCfgMgr::SaveCfgToPath(const std::string& path) {
    if (!IsConfigWritable() || path.empty() || m_abandoned) {
        return;
    }
    std::ostringstream stream;
    Save(stream);
    if (!stream.good()) {
        ACM_LOG(ACM_ERROR, "serialise [%s] fail. [%s] is left as it is.", m_cfgPath.c_str(), path.c_str());
        throw Poco::OutOfMemoryException(path); // nothing else makes such a stream bad
    }
    const std::string text = stream.str();
    if (text.size() > MAX_DOCUMENT_BYTES) {
        ACM_LOG(ACM_ERROR, "[%s] is too large to be loaded again. [%s] is left as it is.", m_cfgPath.c_str(),
                path.c_str());
        RequireWritten(Written::FAILED, path);
        return;
    }
    const std::lock_guard<std::mutex> lock(m_fileMutex);
    if (m_cryptoMgr) {
        std::string cipher;
        m_cryptoMgr->Encrypt(text, cipher);
        Overwrite(cipher, path);
    } else {
        Overwrite(text, path);
    }
}

bool AppCfgMgr::MendCopies() {
    // Under the lock of the writers: a file that changes while one of them is at it is not another's work.
    const auto isCut = [this](const std::string& path) {
        const std::lock_guard<std::mutex> lock(m_fileMutex);
        return IsCut(path);
    };
    const std::string backupPath = GetBackupPath();
    if (isCut(m_cfgPath)) {
        Save();
    }
    if (isCut(backupPath)) {
        Backup();
    }
    return !isCut(m_cfgPath) && !isCut(backupPath);
}

// While the other copy is cut, that one is written again first, or this one is the last.
void AppCfgMgr::Overwrite(const std::string& data, const std::string& path) {
    const std::string& other = path == m_cfgPath ? m_backupPath : m_cfgPath;
    const bool isLast = !IsCut(path) && IsCut(other) && WriteIfRoom(data, other) != Written::WHOLE;
    RequireWritten(isLast ? WriteLastCopy(data, path) : WriteIfRoom(data, path), path);
}

void AppCfgMgr::RequireWritten(Written result, const std::string& path) const {
    if (!m_writesDemanded || result == Written::WHOLE) {
        return;
    }
    if (result == Written::READ_ONLY) {
        throw Poco::FileReadOnlyException(path);
    }
    throw Poco::WriteFileException(path);
}

// A full disk would leave nothing but a cut file.
AppCfgMgr::Written AppCfgMgr::WriteIfRoom(const std::string& data, const std::string& path) {
    if (HasRoomFor(data.size(), path)) {
        return Write(data, path);
    }
    ACM_LOG(ACM_ERROR, "no room to write [%s], which is left as it is.", path.c_str());
    return Written::FAILED;
}

AppCfgMgr::Written AppCfgMgr::WriteLastCopy(const std::string& data, const std::string& path) {
    if (IsSureToTake(data.size(), path)) {
        return Write(data, path);
    }
    ACM_LOG(ACM_ERROR, "[%s] is left as it is: no other copy is whole.", path.c_str());
    return Written::FAILED;
}

void AppCfgMgr::SyncSaveToPath(const std::string& data, const std::string& path) {
    Write(data, path);
}

AppCfgMgr::Written AppCfgMgr::Write(const std::string& data, const std::string& path) {
    const AcmDescriptor file(OpenPromptly(path, O_WRONLY | O_CREAT | O_TRUNC, S_IRUSR | S_IWUSR));
    if (file.Get() == -1) {
        const bool isReadOnly = errno == EROFS || errno == EACCES || errno == EPERM;
        ACM_LOG(ACM_ERROR, "open [%s] fail.", path.c_str());
        return isReadOnly ? Written::READ_ONLY : Written::FAILED;
    }
    bool isWhole = false;
    const ssize_t written = write(file.Get(), data.data(), data.size());
    if (written < 0 || static_cast<size_t>(written) != data.size()) {
        ACM_LOG(ACM_ERROR, "write [%s] fail.required wr len[%zu] actual wr len[%zd].", path.c_str(),
                data.size(), written);
    } else if (fsync(file.Get()) == -1) {
        ACM_LOG(ACM_ERROR, "fsync [%s] fail.", path.c_str());
    } else {
        isWhole = true;
    }
    NoteCut(path, !isWhole);
    return isWhole || IsDevice(file.Get()) ? Written::WHOLE : Written::FAILED;
}

void AppCfgMgr::Replace(const std::string& src, const std::string& dst) {
    if (src.empty()) {
        return;
    }
    if (!FileExists(src)) {
        ACM_LOG(ACM_INFO, "default[%s] not exists.", src.c_str());
        return;
    }
    CopyRegularFile(src, dst);
    ACM_LOG(ACM_INFO, "copy default[%s] to cfg[%s] done.", src.c_str(), dst.c_str());
}

void AppCfgMgr::RaisePendingChange() {
    const auto isRaised = [this] { return !m_notifyPending; };
    std::unique_lock<std::mutex> lock(m_notifyMutex);
    m_notifyIdle.wait(lock, isRaised);
    if (m_notifyFailed) {
        m_notifyPending = true;
        m_notifyCond.notify_one();
        m_notifyIdle.wait(lock, isRaised);
    }
    if (m_notifyFailed) {
        throw Poco::RuntimeException("a change could not be passed on", m_cfgPath);
    }
}

void AppCfgMgr::RunNotifyThread() {
    Fence(LOG_FILE, __LINE__, [this] { NotifyConfigChanged(); });
}

void AppCfgMgr::NotifyConfigChanged() {
    while (!m_notifyStop) {
        std::unique_lock<std::mutex> lock(m_notifyMutex);
        m_notifyWaiting = true;
        m_notifyIdle.notify_all();
        while (!m_notifyQuit) {
            m_notifyCond.wait(lock);
            m_notifyFailed = !RaiseConfigChanged();
            m_notifyPending = false;
            m_notifyIdle.notify_all();
        }
    }
}

void AppCfgMgr::RaiseHere() {
    try {
        m_configChangedEvent(this, m_cfgPath);
    } catch (...) {
        const std::lock_guard<std::mutex> lock(m_notifyMutex);
        m_notifyFailed = true;
        throw;
    }
}

bool AppCfgMgr::RaiseConfigChanged() noexcept {
    return Fence(LOG_FILE, __LINE__, [this] { m_configChangedEvent(this, m_cfgPath); });
}

std::string AppCfgMgr::GetBackupPath() const {
    const std::lock_guard<std::mutex> lock(m_fileMutex);
    return m_backupPath;
}

std::string AppCfgMgr::GetDefaultPath() const {
    const std::lock_guard<std::mutex> lock(m_fileMutex);
    return m_defaultPath;
}

void AppCfgMgr::SetBackupPath(const std::string& path) {
    const std::lock_guard<std::mutex> lock(m_fileMutex);
    m_backupPath = path;
}

void AppCfgMgr::SetDefaultPath(const std::string& path) {
    const std::lock_guard<std::mutex> lock(m_fileMutex);
    m_defaultPath = path;
}

std::shared_ptr<AppCfgCryptoMgr> AppCfgMgr::GetCryptoMgr() const {
    const std::lock_guard<std::mutex> lock(m_fileMutex);
    return m_cryptoMgr;
}

void AppCfgMgr::SetCryptoMgr(const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr) {
    const std::lock_guard<std::mutex> lock(m_fileMutex);
    m_cryptoMgr = cryptoMgr;
}

std::shared_ptr<AppCfgCryptoMgr> AppCfgMgr::CloneCryptoMgr(const std::string& path) const {
    const std::shared_ptr<AppCfgCryptoMgr> cryptoMgr = GetCryptoMgr();
    if (!cryptoMgr) {
        return nullptr;
    }
    const std::shared_ptr<AppCfgCryptoMgr> clone = cryptoMgr->Clone();
    clone->m_filePath = path;
    return clone;
}

} // namespace SystemServer
