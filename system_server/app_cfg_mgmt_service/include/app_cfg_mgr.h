#ifndef APP_CFG_MGR_H
#define APP_CFG_MGR_H

#include <Poco/AutoPtr.h>
#include <Poco/BasicEvent.h>
#include <Poco/Util/AbstractConfiguration.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "acm_document.h"
#include "acm_file_store.h"
#include "acm_mutex.h"
#include "acm_thread.h"
#include "app_cfg_crypto_mgr.h"

namespace SystemServer {

// One client's configuration file in memory. Owned by the registry; strategies hold a reference and are
// stopped first.
// Threads: data calls come from the event thread, Save and Backup from strategy threads, and the change
// event is raised on the notification thread or, after a raw set, on the caller's.
// The order of its locks stands at AppCfgMgmtServer::m_itemMapMutex.
class AppCfgMgr {
public:
    // Returns once the notification thread waits, so that a change that follows at once is heard.
    AppCfgMgr(const std::string& cfgPath, const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr);
    AppCfgMgr(const AppCfgMgr&) = delete;
    AppCfgMgr& operator=(const AppCfgMgr&) = delete;
    virtual ~AppCfgMgr();

    // The virtual operations, whose order is fixed. A subclass overrides those in which its format differs.

    // Appends the value of each key of the query ("a,b.c") to values; 0. Throws Poco::NotFoundException for
    // a missing key and Poco::RangeException for a request beyond MAX_REQUEST_WORK.
    virtual int32_t GetData(const std::string& query, std::vector<std::string>& values) const;

    // Stores the values of the query ("a|1,b.c|2") as strings, in order and without rollback, and wakes the
    // notification thread. 0, or -1 with a log line for a fault of grammar, an unknown key or a value that
    // the format cannot hold.
    virtual int32_t SetData(const std::string& query);

    // Replaces or reads a fragment of the document. 0, or -1 with a log line. A set raises the change event
    // on the calling thread: an instant save is done when it returns.
    virtual int32_t SetRawData(const std::string& key, const std::string& data);
    virtual int32_t GetRawData(const std::string& key, std::string& data);

    // Whether the format is one that is written.
    virtual bool IsConfigWritable();

    // Write the document to the configuration file and to the backup copy. A failed write is only logged; a
    // text that could not be made, for want of memory or by the cipher, throws.
    virtual void Save();
    virtual void Backup();

    // Copies the default file over the configuration and backup files and reloads the document. Throws what
    // the file or document libraries throw.
    virtual void Restore();

    // Writes the document's text to the stream; a fault throws or leaves the stream bad.
    virtual void Save(std::ostream& out);

    // A manager of the same kind for another file, which it loads with the same encryption.
    virtual std::shared_ptr<AppCfgMgr> DeepClone(const std::string& path) = 0;

    // Writes the bytes in place, without a temporary file and a rename, so that the file keeps its owner,
    // mode and links. A crash can leave it torn; that is what the backup copy is for. Failures are logged.
    static void SyncSaveToPath(const std::string& data, const std::string& path);

    // Copies src over dst when src exists.
    static void Replace(const std::string& src, const std::string& dst);

    // From now on nothing is written: the item will not be registered, and its files stay as they are.
    void Abandon() { m_abandoned = true; }

    // Whether the file or the backup lacks the newest change or was torn by a write. Never for a format that
    // is only read.
    bool IsBehind(AcmFileStore::Copy copy);
    bool IsTorn(AcmFileStore::Copy copy) const;
    void NoteTorn(AcmFileStore::Copy copy);
    // Why the copy could not be opened when it was last written, or 0.
    int OpenError(AcmFileStore::Copy copy) const;

    // At the end of an item, after its strategies have stopped: saves and backs up if the file or the backup
    // is behind. Throws as they do.
    void CatchUp(bool isSaved, bool isBackedUp);

    // Wakes the notification thread.
    void AnnounceChange();

    // A key change has torn the default file: restoring is refused until it can be loaded again.
    void NoteDefaultTorn() { m_isDefaultTorn = true; }

    const std::string& GetCfgPath() const { return m_cfgPath; }
    std::string GetBackupPath() const;
    std::string GetDefaultPath() const;
    void SetBackupPath(const std::string& path);
    void SetDefaultPath(const std::string& path);
    std::shared_ptr<AppCfgCryptoMgr> GetCryptoMgr() const;
    void SetCryptoMgr(const std::shared_ptr<AppCfgCryptoMgr>& cryptoMgr);

    // Raised after a change with the configuration path; the sender is this manager.
    Poco::BasicEvent<const std::string> m_configChangedEvent;

protected:
    void SaveCfgToPath(const std::string& path);
    void NotifyConfigChanged();

    // Takes over a new document of a format that is written.
    template <typename Document>
    void Own(Document* document) {
        m_config = document;
        m_document = document;
    }

    // A copy of the encryption manager that works on another file; empty for plain files.
    std::shared_ptr<AppCfgCryptoMgr> CloneCryptoMgr(const std::string& path) const;

    // Whether the value can be stored at the key, which exists: the format can write it and read it back, and
    // the document has room for it.
    virtual bool Admits(const std::string& key, const std::string& value) ACM_REQUIRES(m_documentMutex);

    // One text for reading and writing; logs are searched for it as it is.
    virtual void LogRawRefused() const {}

    // Set by the subclass's constructor, and never again.
    Poco::AutoPtr<Poco::Util::AbstractConfiguration> m_config ACM_PT_GUARDED_BY(m_documentMutex);
    // The same object; null for a format that is only read.
    AcmDocument* m_document ACM_PT_GUARDED_BY(m_documentMutex) = nullptr;
    const std::string m_cfgPath;

    // The file guard: held while files are written and while the document is reloaded. Guards what Save and
    // Backup need beside the document.
    mutable AcmMutex m_fileMutex;
    std::string m_backupPath ACM_GUARDED_BY(m_fileMutex);
    std::string m_defaultPath ACM_GUARDED_BY(m_fileMutex);
    std::shared_ptr<AppCfgCryptoMgr> m_cryptoMgr ACM_GUARDED_BY(m_fileMutex);
    AcmFileStore m_files ACM_GUARDED_BY(m_fileMutex){m_cfgPath, m_backupPath};

    // The document guard: held for every read, write, serialisation and reload of the tree, which is not
    // safe even for two readers.
    mutable AcmMutex m_documentMutex;
    uint32_t m_changes ACM_GUARDED_BY(m_documentMutex) = 0; // of the document so far

private:
    bool SetItem(const std::string& item, class AcmWorkBudget& budget) ACM_REQUIRES(m_documentMutex);
    std::string MakeText(const std::string& path);
    void RaiseChange();
    void DropKeptText() ACM_REQUIRES(m_fileMutex);
    void RestoreFiles();
    void Reload();
    void ReplaceCopy(const std::string& source, AcmFileStore::Copy copy);
    uint32_t ChangeNumber() const;
    void NoteChange();

    // What was last written, for the other copy; kept only while the event is raised.
    std::string m_keptText ACM_GUARDED_BY(m_fileMutex);
    uint32_t m_keptChange ACM_GUARDED_BY(m_fileMutex) = 0;
    std::atomic<bool> m_isTextKept{false};
    std::atomic<int> m_raising{0}; // threads that raise the event

    std::atomic<bool> m_abandoned{false};
    bool m_isDefaultTorn = false; // event thread only

    AcmMutex m_saveMutex;   // serialises Save()
    AcmMutex m_backupMutex; // serialises Backup()

    // Guards the notification thread's wait. Held while the event is raised: a set that ends meanwhile waits
    // for the handlers, and its wake-up is then heard.
    AcmMutex m_notifyMutex;
    bool m_notifyWaiting ACM_GUARDED_BY(m_notifyMutex) = false; // the thread has come to its first wait
    std::condition_variable_any m_notifyCond;                   // wakes the notification thread
    std::condition_variable_any m_notifyReady;                  // tells of its first wait
    std::atomic<bool> m_notifyStop{false};
    std::atomic<bool> m_notifyQuit{false};
    std::shared_ptr<AcmThread> m_notifyThread;
};

} // namespace SystemServer

#endif
