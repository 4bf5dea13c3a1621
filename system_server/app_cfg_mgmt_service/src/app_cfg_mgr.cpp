#include "app_cfg_mgr.h"

#include <Poco/Exception.h>
#include <Poco/StringTokenizer.h>

#include <algorithm>
#include <pthread.h>
#include <sched.h>
#include <sstream>
#include <sys/stat.h>

#include "acm_file.h"
#include "acm_file_store.h"
#include "acm_value_lookup.h"
#include "app_cfg_fault.h"
#include "app_cfg_limits.h"
#include "app_cfg_log.h"

namespace SystemServer {

namespace {

constexpr char ITEM_SEPARATOR[] = ",";
constexpr char KEY_VALUE_SEPARATOR = '|';

void RequireDocument(const Poco::AutoPtr<Poco::Util::AbstractConfiguration>& config) {
    if (config.isNull()) {
        throw Poco::NullPointerException("no document");
    }
}

// A thread that is woken would take the processor from the request that woke it, only to wait for the lock
// that the request still holds. As a batch thread it runs when the processor is free: after a burst of sets,
// once.
void GiveWayToRequests() {
    const sched_param none = {};
    pthread_setschedparam(pthread_self(), SCHED_BATCH, &none);
}

} // namespace

AppCfgMgr::AppCfgMgr(const std::string& cfgPath, const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr) :
    m_cfgPath(cfgPath), m_cryptoMgr(cryptoMgr) {
    const AcmLock lock(m_notifyMutex);
    m_notifyThread =
        std::make_shared<AcmThread>([this] { Fence(LOG_FILE, __LINE__, [this] { NotifyConfigChanged(); }); });
    while (!m_notifyWaiting) {
        m_notifyReady.wait(m_notifyMutex);
    }
}

AppCfgMgr::~AppCfgMgr() {
    m_notifyStop = true;
    {
        const AcmLock lock(m_notifyMutex);
        m_notifyQuit = true;
        m_notifyCond.notify_one();
    }
    m_notifyThread->join();
}

int32_t AppCfgMgr::GetData(const std::string& query, std::vector<std::string>& values) const {
    const Poco::StringTokenizer keys(
        query, ITEM_SEPARATOR, Poco::StringTokenizer::TOK_IGNORE_EMPTY | Poco::StringTokenizer::TOK_TRIM);
    const AcmLock document(m_documentMutex);
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
        const AcmLock document(m_documentMutex);
        AcmWorkBudget budget;
        for (const std::string& item : items) {
            if (!SetItem(item, budget)) {
                return -1;
            }
        }
    }
    AnnounceChange();
    return 0;
}

void AppCfgMgr::AnnounceChange() {
    const AcmLock lock(m_notifyMutex);
    m_notifyCond.notify_one();
}

bool AppCfgMgr::SetItem(const std::string& item, AcmWorkBudget& budget) {
    if (std::count(item.begin(), item.end(), KEY_VALUE_SEPARATOR) != 1) {
        ACM_LOG(ACM_ERROR, "invaild grammar[num of Key Value Separator not equal to 1]");
        return false;
    }
    // Only the first character is tested: clients use "key|" to set an empty value.
    if (item.front() == KEY_VALUE_SEPARATOR) {
        ACM_LOG(ACM_ERROR, "invaild grammar[Key Value Separator at the beginning or end]");
        return false;
    }
    RequireDocument(m_config);
    const size_t separator = item.find(KEY_VALUE_SEPARATOR);
    const std::string key = item.substr(0, separator);
    const std::string value = item.substr(separator + 1);
    budget.SpendLookup(key);
    // A document that admits the value has found the key; looking for it first would be done twice.
    if (m_document == nullptr || !Admits(key, value)) {
        if (!HasValue(*m_config, key, budget)) {
            ACM_LOG(ACM_ERROR, "query key[%s] not found.", key.c_str());
            return false;
        }
        if (!Admits(key, value)) {
            ACM_LOG(ACM_ERROR, "value of key[%s] cannot be stored.", key.c_str());
            return false;
        }
    }
    m_config->setString(key, value);
    ++m_changes;
    return true;
}

int32_t AppCfgMgr::SetRawData(const std::string& key, const std::string& data) {
    {
        const AcmLock document(m_documentMutex);
        if (m_document->SetRawString(key, data) != 0) {
            LogRawRefused();
            return -1;
        }
        ++m_changes;
    }
    RaiseChange();
    return 0;
}

int32_t AppCfgMgr::GetRawData(const std::string& key, std::string& data) {
    const AcmLock document(m_documentMutex);
    if (m_document->GetRawString(key, data) != 0) {
        LogRawRefused();
        return -1;
    }
    return 0;
}

void AppCfgMgr::Save() {
    const AcmLock lock(m_saveMutex);
    ACM_LOG(ACM_TRACE, "save [%s]...", m_cfgPath.c_str());
    SaveCfgToPath(m_cfgPath);
    ACM_LOG(ACM_TRACE, "save [%s] done.", m_cfgPath.c_str());
}

void AppCfgMgr::Backup() {
    const AcmLock lock(m_backupMutex);
    const std::string backupPath = GetBackupPath();
    ACM_LOG(ACM_TRACE, "backup [%s] to [%s]...", m_cfgPath.c_str(), backupPath.c_str());
    SaveCfgToPath(backupPath);
    ACM_LOG(ACM_TRACE, "backup [%s] to [%s] done.", m_cfgPath.c_str(), backupPath.c_str());
}

void AppCfgMgr::Restore() {
    RestoreFiles();
    if (m_document != nullptr) {
        Reload();
    }
}

void AppCfgMgr::RestoreFiles() {
    const std::string defaultPath = GetDefaultPath();
    if (defaultPath.empty()) {
        return;
    }
    if (m_isDefaultTorn) {
        DeepClone(defaultPath); // throws while it cannot be loaded
        m_isDefaultTorn = false;
    }
    if (FileExists(defaultPath)) {
        NoteChange();
    }
    ReplaceCopy(defaultPath, AcmFileStore::CFG);
    // The backup too, or a later recovery from it would bring the old values back.
    const std::string backupPath = GetBackupPath();
    if (!backupPath.empty() && IsReachable(backupPath)) {
        ReplaceCopy(defaultPath, AcmFileStore::BACKUP);
    }
}

void AppCfgMgr::ReplaceCopy(const std::string& source, AcmFileStore::Copy copy) {
    try {
        Replace(source, copy == AcmFileStore::CFG ? m_cfgPath : GetBackupPath());
    } catch (...) {
        NoteTorn(copy);
        throw;
    }
    if (FileExists(source)) {
        const uint32_t change = ChangeNumber();
        const AcmLock lock(m_fileMutex);
        m_files.NoteWhole(copy, change);
    }
}

void AppCfgMgr::Reload() {
    const AcmLock files(m_fileMutex);
    const AcmLock document(m_documentMutex);
    DropKeptText(); // the file that is loaded may differ from the text of this change
    try {
        if (m_cryptoMgr) {
            m_document->load(*m_cryptoMgr->GetDecryptStream());
        } else {
            m_document->load(m_cfgPath);
        }
    } catch (...) {
        ++m_changes; // the old document stays, and neither file holds its text any more
        throw;
    }
    m_files.NoteWhole(AcmFileStore::CFG, m_changes);
}

void AppCfgMgr::Save(std::ostream& out) {
    const AcmLock document(m_documentMutex);
    if (m_document != nullptr) {
        m_document->Save(out);
    }
}

bool AppCfgMgr::Admits(const std::string& key, const std::string& value) {
    return m_document == nullptr || m_document->Admits(key, value);
}

bool AppCfgMgr::IsConfigWritable() {
    return m_document != nullptr;
}

void AppCfgMgr::SaveCfgToPath(const std::string& path) {
    if (!IsConfigWritable() || path.empty() || m_abandoned) {
        return;
    }
    const uint32_t change = ChangeNumber();
    const AcmFileStore::Copy copy = path == m_cfgPath ? AcmFileStore::CFG : AcmFileStore::BACKUP;
    {
        const AcmLock lock(m_fileMutex);
        if (m_isTextKept && m_keptChange == change) {
            m_files.Write(copy, m_keptText, change);
            return;
        }
    }
    std::string text = MakeText(path);
    if (text.size() > MAX_DOCUMENT_BYTES) {
        ACM_LOG(ACM_ERROR, "[%s] is too large to be loaded again. [%s] is left as it is.", m_cfgPath.c_str(),
                path.c_str());
        return;
    }
    const AcmLock lock(m_fileMutex);
    if (m_cryptoMgr) {
        std::string cipher;
        m_cryptoMgr->Encrypt(text, cipher);
        text.swap(cipher);
    }
    m_files.Write(copy, text, change);
    m_keptText.swap(text);
    m_keptChange = change;
    m_isTextKept = true;
    if (m_raising == 0) {
        DropKeptText();
    }
}

std::string AppCfgMgr::MakeText(const std::string& path) {
    std::ostringstream stream;
    Save(stream);
    if (!stream.good()) {
        ACM_LOG(ACM_ERROR, "serialise [%s] fail. [%s] is left as it is.", m_cfgPath.c_str(), path.c_str());
        throw Poco::OutOfMemoryException(path); // the only fault that makes a string stream bad
    }
    return stream.str();
}

// Instant strategies write the file and the backup one after the other while the event is raised: the text
// that was made for one is kept for the other until then, and no longer. Without such a text no file lock is
// taken here, since a delayed save may hold it for as long as the disk takes.
void AppCfgMgr::RaiseChange() {
    ++m_raising;
    const auto end = [this] {
        if (--m_raising == 0 && m_isTextKept) {
            const AcmLock lock(m_fileMutex);
            DropKeptText();
        }
    };
    try {
        m_configChangedEvent(this, m_cfgPath);
    } catch (...) {
        end();
        throw;
    }
    end();
}

void AppCfgMgr::DropKeptText() {
    std::string().swap(m_keptText);
    m_isTextKept = false;
}

void AppCfgMgr::SyncSaveToPath(const std::string& data, const std::string& path) {
    LogWriting(WriteInPlace(data, path, S_IRUSR | S_IWUSR), data.size(), path);
}

bool AppCfgMgr::IsBehind(AcmFileStore::Copy copy) {
    const uint32_t change = ChangeNumber();
    const AcmLock lock(m_fileMutex);
    return IsConfigWritable() && m_files.IsBehind(copy, change);
}

bool AppCfgMgr::IsTorn(AcmFileStore::Copy copy) const {
    const AcmLock lock(m_fileMutex);
    return m_files.IsTorn(copy);
}

int AppCfgMgr::OpenError(AcmFileStore::Copy copy) const {
    const AcmLock lock(m_fileMutex);
    return m_files.OpenError(copy);
}

void AppCfgMgr::NoteTorn(AcmFileStore::Copy copy) {
    const AcmLock lock(m_fileMutex);
    m_files.NoteTorn(copy);
}

void AppCfgMgr::CatchUp(bool isSaved, bool isBackedUp) {
    if (isSaved && IsBehind(AcmFileStore::CFG)) {
        Save();
    }
    if (isBackedUp && IsBehind(AcmFileStore::BACKUP)) {
        Backup();
    }
}

uint32_t AppCfgMgr::ChangeNumber() const {
    const AcmLock document(m_documentMutex);
    return m_changes;
}

void AppCfgMgr::NoteChange() {
    const AcmLock document(m_documentMutex);
    ++m_changes;
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

void AppCfgMgr::NotifyConfigChanged() {
    GiveWayToRequests();
    while (!m_notifyStop) {
        const AcmLock lock(m_notifyMutex);
        m_notifyWaiting = true;
        m_notifyReady.notify_all();
        while (!m_notifyQuit) {
            m_notifyCond.wait(m_notifyMutex);
            Fence(LOG_FILE, __LINE__, [this] { RaiseChange(); });
        }
    }
}

std::string AppCfgMgr::GetBackupPath() const {
    const AcmLock lock(m_fileMutex);
    return m_backupPath;
}

std::string AppCfgMgr::GetDefaultPath() const {
    const AcmLock lock(m_fileMutex);
    return m_defaultPath;
}

void AppCfgMgr::SetBackupPath(const std::string& path) {
    const AcmLock lock(m_fileMutex);
    m_backupPath = path;
}

void AppCfgMgr::SetDefaultPath(const std::string& path) {
    const AcmLock lock(m_fileMutex);
    m_defaultPath = path;
}

std::shared_ptr<AppCfgCryptoMgr> AppCfgMgr::GetCryptoMgr() const {
    const AcmLock lock(m_fileMutex);
    return m_cryptoMgr;
}

void AppCfgMgr::SetCryptoMgr(const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr) {
    {
        const AcmLock lock(m_fileMutex);
        m_cryptoMgr = cryptoMgr;
        DropKeptText();
    }
    NoteChange(); // last: a save that ran before it used the old encryption, and must count as behind
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
