#ifndef APP_CFG_DOCUMENT_MGR_H
#define APP_CFG_DOCUMENT_MGR_H

#include <Poco/AutoPtr.h>

#include <istream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "app_cfg_mgr.h"

namespace SystemServer {

// What the managers of writable documents share. Document is the document class; Faults logs what only the
// subclass can name: DocumentMissing() and RawRefused().
template <typename Document, typename Faults>
class AppCfgDocumentMgr : public AppCfgMgr {
public:
    using AppCfgMgr::AppCfgMgr;

    int32_t GetData(const std::string& query, std::vector<std::string>& values) const override {
        return AppCfgMgr::GetData(query, values);
    }

    int32_t SetData(const std::string& query) override { return AppCfgMgr::SetData(query); }

    // Raises the change event on the calling thread: an instant save is done when this returns.
    int32_t SetRawData(const std::string& key, const std::string& data) override {
        {
            const std::lock_guard<std::mutex> guard(m_documentMutex);
            Poco::AutoPtr<Document> document = ReachDocument();
            if (document.isNull()) {
                return -1;
            }
            if (document->SetRawString(key, data) != 0) {
                Faults::RawRefused();
                return -1;
            }
            ++m_changes;
        }
        m_configChangedEvent(this, m_cfgPath);
        return 0;
    }

    int32_t GetRawData(const std::string& key, std::string& data) override {
        const std::lock_guard<std::mutex> guard(m_documentMutex);
        Poco::AutoPtr<Document> document = ReachDocument();
        if (document.isNull()) {
            return -1;
        }
        if (document->GetRawString(key, data) != 0) {
            Faults::RawRefused();
            return -1;
        }
        return 0;
    }

    bool IsConfigWritable() override { return true; }

    void Save() override { AppCfgMgr::Save(); }
    void Backup() override { AppCfgMgr::Backup(); }

    void Restore() override {
        AppCfgMgr::Restore();
        Poco::AutoPtr<Document> document = ReachDocument();
        if (document.isNull()) {
            return;
        }
        Reload([&] {
            if (m_cryptoMgr) {
                const std::shared_ptr<std::istream> stream = m_cryptoMgr->GetDecryptStream();
                document->load(*stream);
            } else {
                document->load(m_cfgPath);
            }
        });
    }

    void Save(std::ostream& out) override {
        const std::lock_guard<std::mutex> guard(m_documentMutex);
        Poco::AutoPtr<Document> document = ReachDocument();
        if (!document.isNull()) {
            document->Save(out);
        }
    }

protected:
    bool Admits(const std::string& key, const std::string& value) override {
        Poco::AutoPtr<Document> document = ReachDocument();
        return !document.isNull() && document->Admits(key, value);
    }

private:
    Poco::AutoPtr<Document> ReachDocument() {
        Poco::AutoPtr<Document> document(dynamic_cast<Document*>(m_config.get()), true);
        if (document.isNull()) {
            Faults::DocumentMissing();
        }
        return document;
    }
};

} // namespace SystemServer

#endif
