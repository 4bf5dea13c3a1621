// What the paths inside the service cost, each by itself: no socket, no other thread.
//   speed_paths DIRECTORY [options of the benchmark library]
#include <benchmark/benchmark.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "app_cfg_crypto_mgr_factory.h"
#include "app_cfg_mgmt_server.h"
#include "app_cfg_mgr_factory.h"
#include "pl/pl_log_control.h"
#include "tern/tern.h"

using namespace SystemServer;

// Takes the place of the platform's: a reply ends here.
extern "C" int __wrap_tern_message_async_send(tern_message* msg, kestrel_connection*, int) {
    tern_content_clear(msg);
    return 0;
}

namespace {

constexpr int KEYS = 1000;

std::string g_directory;
std::string g_hundredKeys;
std::string g_hundredPairs;

// An item of a thousand keys, in the registry as "bench.FORMAT.0".
AppCfgMgr& Item(ConfigStorageType type) {
    const std::string key = "bench." + std::to_string(static_cast<int>(type)) + ".0";
    const AcmLock lock(AppCfgMgmtServer::m_itemMapMutex);
    auto& item = AppCfgMgmtServer::m_appCfgMgmtItemMap[key];
    if (!item.appCfgMgr) {
        const bool isXml = type == ConfigStorageType::XML;
        std::string text;
        for (int at = 0; at < KEYS; ++at) {
            const std::string name = "k" + std::to_string(at);
            text += isXml ? "<" + name + ">v</" + name + ">" : (at > 0 ? ",\"" : "\"") + name + "\":\"v\"";
        }
        const std::string path = g_directory + "/paths";
        std::ofstream(path) << (isXml ? "<r>" + text + "</r>" : "{" + text + "}");
        item.appCfgMgr = AppCfgMgrFactory::CreateAppCfgMgr(type, path, nullptr);
    }
    return *item.appCfgMgr;
}

void Get(benchmark::State& state, ConfigStorageType type, const std::string& query) {
    const AppCfgMgr& item = Item(type);
    while (state.KeepRunning()) {
        std::vector<std::string> values;
        item.GetData(query, values);
        benchmark::DoNotOptimize(values);
    }
}

void Set(benchmark::State& state, ConfigStorageType type, const std::string& query) {
    AppCfgMgr& item = Item(type);
    while (state.KeepRunning()) {
        if (item.SetData(query) != 0) {
            state.SkipWithError("refused");
            break;
        }
    }
}

void GetRaw(benchmark::State& state, ConfigStorageType type) {
    AppCfgMgr& item = Item(type);
    while (state.KeepRunning()) {
        std::string text;
        item.GetRawData("k50", text);
        benchmark::DoNotOptimize(text);
    }
}

void Serialise(benchmark::State& state, ConfigStorageType type) {
    AppCfgMgr& item = Item(type);
    while (state.KeepRunning()) {
        std::ostringstream text;
        item.Save(text);
        benchmark::DoNotOptimize(text);
    }
}

// From the message to its reply: record, registry, handler.
void Dispatch(benchmark::State& state) {
    Item(ConfigStorageType::JSON);
    AppCfgDataReq record = {};
    std::string("bench").copy(record.hndl.ownerName, APP_CFG_NAME_SIZE);
    std::to_string(static_cast<int>(ConfigStorageType::JSON)).copy(record.hndl.cfgName, APP_CFG_NAME_SIZE);
    std::string("k500").copy(record.query, APP_CFG_QUERY_SIZE);
    kestrel_connection connection = {-1};
    while (state.KeepRunning()) {
        tern_message* const msg = tern_message_new(0);
        msg->header->uri = APP_CFG_URI_DATA;
        msg->header->method = APP_CFG_METHOD_GET;
        tern_content_add(msg, &record, sizeof record, 0);
        AppCfgMgmtServer::ProcessMsg(msg, &connection);
        if (msg->header->status != APP_CFG_STATUS_OK) {
            state.SkipWithError("refused");
        }
        tern_message_put(msg);
    }
}

void Expand(benchmark::State& state) {
    AppCfgMgmtServer::ConnectionInfo info;
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(AppCfgMgmtServer::ExpandPath("/data/${unknown}/net.json", &info));
    }
}

void Encrypt(benchmark::State& state) {
    const AppCfgCryptoParam key = {};
    const auto cipher = AppCfgCryptoMgrFactory::CreateAppCfgCryptoMgr(ConfigCryptoType::AES_256_CBC, "", key);
    const std::string plain(static_cast<size_t>(state.range(0)), 'v');
    while (state.KeepRunning()) {
        std::string text;
        cipher->Encrypt(plain, text);
        benchmark::DoNotOptimize(text);
    }
}

void Register() {
    for (int at = 0; at < 100; ++at) {
        g_hundredKeys += "k" + std::to_string(at) + ",";
        g_hundredPairs += "k" + std::to_string(at) + "|w,";
    }
    using benchmark::RegisterBenchmark;
    RegisterBenchmark("dispatch of a get", Dispatch);
    RegisterBenchmark("expansion of a path", Expand);
    for (const auto type : {ConfigStorageType::JSON, ConfigStorageType::XML}) {
        const std::string name = type == ConfigStorageType::XML ? "xml: " : "json: ";
        RegisterBenchmark((name + "lookup").c_str(), [type](auto& state) { Get(state, type, "k50"); });
        RegisterBenchmark((name + "split and lookup of 100").c_str(),
                          [type](auto& state) { Get(state, type, g_hundredKeys); });
        RegisterBenchmark((name + "set with its check").c_str(),
                          [type](auto& state) { Set(state, type, "k50|w"); });
        RegisterBenchmark((name + "set of 100").c_str(),
                          [type](auto& state) { Set(state, type, g_hundredPairs); });
        RegisterBenchmark((name + "raw get").c_str(), [type](auto& state) { GetRaw(state, type); });
        RegisterBenchmark((name + "serialise").c_str(), [type](auto& state) { Serialise(state, type); });
    }
    RegisterBenchmark("encrypt", Encrypt)->Arg(1 << 10)->Arg(100 << 10);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        return 2;
    }
    pl_log_set_level(9);
    g_directory = argv[1];
    Register();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    const AcmLock lock(AppCfgMgmtServer::m_itemMapMutex);
    AppCfgMgmtServer::m_appCfgMgmtItemMap.clear();
    return 0;
}
