// What an item costs the device: threads, address space, resident memory and descriptors, and how much stack
// the deepest path of a thread takes.
//
// The service runs in this process, so that the figures are those of the machine that the program is built
// for also under an emulator, whose own memory does not count: the maps are those that the program sees, and
// a page is resident when mincore says so. An item's share is the difference that many of them make.
#include <dirent.h>
#include <dlfcn.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "acm_json_configuration.h"
#include "acm_xml_configuration.h"
#include "acm_xml_limits.h"
#include "app_cfg_crypto_mgr_factory.h"
#include "app_cfg_limits.h"
#include "app_cfg_mgmt_server.h"
#include "kestrel/kestrel_host.h"
#include "support/host_process.h"
#include "support/records.h"
#include "support/root_directory.h"
#include "support/service_client.h"

namespace {

using namespace SystemServer;
using Support::Client;

constexpr size_t KIB = 1024;
constexpr size_t MIB = KIB * KIB;
constexpr size_t ITEMS_OF_A_KIND = 100;

// What threads of the service get instead of what they ask for, unless 0.
size_t g_stack = 0;

struct Sample {
    double threads;
    double addressSpace; // bytes
    double resident;     // bytes
    double descriptors;
};

double EntriesOf(const char* directory) {
    DIR* const entries = opendir(directory);
    double count = 0;
    while (readdir(entries) != nullptr) {
        ++count;
    }
    closedir(entries);
    return count;
}

double ResidentBytes(void* from, size_t length) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    std::vector<unsigned char> pages(length / page + 1);
    if (mincore(from, length, pages.data()) != 0) {
        return 0;
    }
    const auto isResident = [](unsigned char flags) { return (flags & 1U) != 0; };
    return static_cast<double>(page) *
           static_cast<double>(std::count_if(pages.begin(), pages.end(), isResident));
}

// Of files only what was written to counts: pages that are read alone stay in the system's cache.
Sample TakeSample() {
    Sample sample{EntriesOf("/proc/self/task"), 0, 0, EntriesOf("/proc/self/fd")};
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        std::istringstream fields(line);
        uintptr_t from = 0;
        uintptr_t to = 0;
        char dash = 0;
        std::string access;
        fields >> std::hex >> from >> dash >> to >> access;
        if (line.find("[v") != std::string::npos) { // the kernel's own
            continue;
        }
        void* start = nullptr;
        std::memcpy(&start, &from, sizeof start);
        sample.addressSpace += static_cast<double>(to - from);
        sample.resident += access[1] == 'w' ? ResidentBytes(start, to - from) : 0;
    }
    return sample;
}

Sample operator-(const Sample& after, const Sample& before) {
    return {after.threads - before.threads, after.addressSpace - before.addressSpace,
            after.resident - before.resident, after.descriptors - before.descriptors};
}

// The service on a loop of this process.
class Service {
public:
    Service() : m_loop(kestrel_event_mgr_new(0)) {
        if (kestrel_server_register(APP_CFG_SERVICE_NAME, m_loop, &AppCfgMgmtServer::m_serverOps) != 0) {
            throw std::runtime_error("the service cannot be registered");
        }
        m_thread = std::thread([this] { kestrel_event_mgr_run(m_loop, -1); });
    }
    ~Service() {
        kestrel_event_mgr_stop(m_loop);
        m_thread.join();
        kestrel_event_mgr_free(m_loop);
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

private:
    kestrel_event_mgr* const m_loop;
    std::thread m_thread;
};

struct Format {
    const char* name;
    ConfigStorageType type;
    const char* key; // of encryption
};
constexpr Format FORMATS[] = {{"JSON", ConfigStorageType::JSON, ""},
                              {"XML", ConfigStorageType::XML, ""},
                              {"XML, encrypted", ConfigStorageType::XML, "one"},
                              {"INI", ConfigStorageType::INI, ""}};

struct Strategies {
    const char* name;
    ConfigSaveStrategy save;
    ConfigBackupStrategy backup;
};
constexpr Strategies STRATEGIES[] = {
    {"instant", ConfigSaveStrategy::INSTANT, ConfigBackupStrategy::INSTANT},
    {"delayed", ConfigSaveStrategy::DELAY, ConfigBackupStrategy::DELAY},
    {"periodic", ConfigSaveStrategy::TIMING, ConfigBackupStrategy::TIMING},
};

// Some 2 KiB of values.
std::string TextOf(ConfigStorageType type) {
    std::string text = type == ConfigStorageType::JSON  ? "{\"first\": \"0\""
                       : type == ConfigStorageType::XML ? "<c>"
                                                        : "";
    for (int key = 0; key < 100; ++key) {
        const std::string name = "key" + std::to_string(key);
        text += type == ConfigStorageType::JSON  ? ", \"" + name + "\": \"value\""
                : type == ConfigStorageType::XML ? "<" + name + ">value</" + name + ">"
                                                 : name + "=value\n";
    }
    return text + (type == ConfigStorageType::JSON ? "}" : type == ConfigStorageType::XML ? "</c>" : "");
}

// Items of one connection each; gone with it.
class Items {
public:
    Items(const Support::RootDirectory& root, const Format& format, const Strategies& strategies,
          size_t count) {
        while (m_created < count) {
            Adds(root, format, strategies);
        }
    }

    void Adds(const Support::RootDirectory& root, const Format& format, const Strategies& strategies) {
        if (m_created % MAX_ITEMS_PER_CONNECTION == 0) {
            m_clients.emplace_back();
        }
        Creates(root, format, strategies, static_cast<uint32_t>(m_created));
    }

    void SetEach() {
        for (size_t index = 0; index < m_created; ++index) {
            Client& client = m_clients[index / MAX_ITEMS_PER_CONNECTION];
            client.m_handle = Support::Handle("foot", "print", static_cast<uint32_t>(index));
            if (client.Sets("key7|changed") != APP_CFG_STATUS_OK) {
                throw std::runtime_error("an item cannot be set");
            }
        }
    }
    size_t Created() const { return m_created; }

private:
    void Creates(const Support::RootDirectory& root, const Format& format, const Strategies& strategies,
                 uint32_t index) {
        const std::string name = "item" + std::to_string(index);
        AppCfgCreateReq item{};
        item.hndl = Support::Handle("foot", "print", index);
        item.storageType = format.type;
        item.saveStrategy = strategies.save;
        item.backupStrategy = strategies.backup;
        Support::EncryptWith(item, format.key);
        std::string text = TextOf(format.type);
        if (*format.key != '\0') {
            std::string cipher;
            AppCfgCryptoMgrFactory::CreateAppCfgCryptoMgr(item.cryptoType, "", item.cryptoParam)
                ->Encrypt(text, cipher);
            text.swap(cipher);
        }
        Support::Put(item.cfgPath, root.Writes(name, text));
        Support::Put(item.backupPath, root.Of(name + ".backup"));
        const uint16_t status = m_clients.back().Creates(item);
        if (status != APP_CFG_STATUS_OK) {
            throw std::runtime_error("item " + std::to_string(index) +
                                     " is refused: " + std::to_string(status));
        }
        ++m_created;
    }

    std::vector<Client> m_clients;
    size_t m_created = 0;
};

void PrintItem(const Format& format, const Strategies& strategies) {
    const Support::RootDirectory root;
    const Service service;
    { const Items first(root, format, strategies, 1); }
    const Sample before = TakeSample();
    Items items(root, format, strategies, ITEMS_OF_A_KIND);
    items.SetEach();
    const Sample all = TakeSample() - before;
    const double count = ITEMS_OF_A_KIND;
    std::printf("| %s | %s | %.0f | %.0f | %.1f | %.0f |\n", format.name, strategies.name,
                all.threads / count, all.addressSpace / count / KIB, all.resident / count / KIB,
                all.descriptors / count);
}

// Each kind in a process of its own: what one gave back, another would take again.
void PrintItems() {
    std::printf("| an item | saved | threads | address space (KiB) | resident (KiB) | descriptors |\n");
    std::printf("|---|---|---|---|---|---|\n");
    for (const Format& format : FORMATS) {
        for (const Strategies& strategies : STRATEGIES) {
            std::fflush(stdout);
            const pid_t child = fork();
            if (child == 0) {
                PrintItem(format, strategies);
                std::fflush(stdout);
                std::_Exit(0);
            }
            int status = 0;
            if (waitpid(child, &status, 0) != child || status != 0) {
                throw std::runtime_error("a kind of item could not be measured");
            }
        }
    }
}

void PrintMany(size_t count, size_t stack) {
    g_stack = stack;
    const Support::RootDirectory root;
    const Service service;
    const Sample before = TakeSample();
    Items items(root, FORMATS[0], STRATEGIES[1], count);
    items.SetEach();
    const Sample all = TakeSample();
    std::printf("%zu items, saved delayed, stacks of %zu KiB: %.0f threads, %.0f MiB of address space, %.1f "
                "MiB resident "
                "(%.1f before)\n",
                items.Created(), stack / KIB, (all - before).threads, all.addressSpace / MIB,
                all.resident / MIB, before.resident / MIB);
}

// The deepest documents that are accepted, read, changed, written and encrypted: what each kind of thread
// does and more.
void* TakeDeepestPath(void*) {
    const auto cipher = AppCfgCryptoMgrFactory::CreateAppCfgCryptoMgr(ConfigCryptoType::AES_256_CBC, "",
                                                                      Support::Parameters("one"));
    std::ostringstream xml;
    std::string tags;
    for (size_t level = 0; level + 2 < MAX_XML_DEPTH; ++level) {
        tags += "<d>";
    }
    for (size_t level = 0; level + 2 < MAX_XML_DEPTH; ++level) {
        tags += "</d>";
    }
    std::istringstream xmlText("<r>" + tags + "</r>");
    Poco::AutoPtr<AcmXmlConfiguration> xmlDocument(new AcmXmlConfiguration(xmlText));
    xmlDocument->SetRawString("", tags);
    xmlDocument->Save(xml);
    std::string encrypted;
    cipher->Encrypt(xml.str(), encrypted);

    const Support::RootDirectory root;
    const std::string path = root.Writes("deep", "{\"d\": " + std::string(MAX_JSON_DEPTH - 1, '[') +
                                                     std::string(MAX_JSON_DEPTH - 1, ']') + "}");
    Poco::AutoPtr<AcmJsonConfiguration> json(new AcmJsonConfiguration(path));
    json->SetRawString("e", "1");
    std::ostringstream out;
    json->Save(out);
    cipher->Encrypt(out.str(), encrypted);
    AppCfgMgr::SyncSaveToPath(encrypted, path);
    return nullptr;
}

// A thread's stack is painted before it runs; what is no longer paint was used.
size_t StackNeed() {
    constexpr size_t SIZE = 4 * MIB;
    constexpr int PAINT = 0xA5;
    void* const stack = mmap(nullptr, SIZE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (stack == MAP_FAILED) {
        throw std::runtime_error("no memory for a stack");
    }
    std::memset(stack, PAINT, SIZE);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, stack, SIZE);
    pthread_t thread{};
    if (pthread_create(&thread, &attributes, &TakeDeepestPath, nullptr) != 0) {
        throw std::runtime_error("no thread");
    }
    pthread_join(thread, nullptr);
    const auto* const bytes = static_cast<const unsigned char*>(stack);
    const auto* const used =
        std::find_if(bytes, bytes + SIZE, [](unsigned char byte) { return byte != PAINT; });
    const size_t need = static_cast<size_t>(bytes + SIZE - used);
    munmap(stack, SIZE);
    return need;
}

void PrintStack() {
    const size_t need = StackNeed();
    std::printf("the deepest path takes %zu KiB of stack; a thread of the service has %zu KiB\n",
                (need + KIB - 1) / KIB, THREAD_STACK_BYTES / KIB);
    if (need * 2 > THREAD_STACK_BYTES) {
        throw std::runtime_error("the margin is less than the need");
    }
}

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

template <typename Work>
double MedianSeconds(int runs, Work work) {
    std::vector<double> seconds;
    for (int run = 0; run < runs; ++run) {
        const auto start = Clock::now();
        work();
        seconds.push_back(SecondsSince(start));
    }
    std::sort(seconds.begin(), seconds.end());
    return seconds[seconds.size() / 2];
}

void RunsToItsEnd(std::string program) {
    pid_t pid = 0;
    char* const arguments[] = {program.data(), nullptr};
    int status = 0;
    if (posix_spawn(&pid, program.c_str(), nullptr, nullptr, arguments, environ) != 0 ||
        waitpid(pid, &status, 0) != pid || status != 0) {
        throw std::runtime_error(program + " cannot be run");
    }
}

// The bare program is linked with the libraries that the service is, and does nothing.
void PrintStart(const std::string& build) {
    constexpr int RUNS = 21;
    constexpr size_t LAST_ITEM = 1000;
    const Support::RootDirectory root;
    const double bare = MedianSeconds(RUNS, [&] { RunsToItsEnd(build + "/bin/bare"); });
    Support::HostProcess host(build, root.Path());
    const double start = MedianSeconds(RUNS, [&] {
        host.Start();
        host.Kill();
    });
    host.Start();
    Items items(root, FORMATS[0], STRATEGIES[1], LAST_ITEM - 1);
    const auto before = Clock::now();
    items.Adds(root, FORMATS[0], STRATEGIES[1]);
    const double last = SecondsSince(before);
    std::printf("a bare program with the same libraries starts and ends in %.1f ms; the service accepts "
                "clients after %.2f "
                "times that, and makes its item number %zu in %.2f times that\n",
                bare * 1e3, start / bare, LAST_ITEM, last / bare);
}

} // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                              void* argument) {
    using Create = decltype(&pthread_create);
    static const Create next = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    pthread_attr_t other;
    if (g_stack == 0 || attributes == nullptr) {
        return next(thread, attributes, run, argument);
    }
    pthread_attr_init(&other);
    pthread_attr_setstacksize(&other, g_stack);
    const int error = next(thread, &other, run, argument);
    pthread_attr_destroy(&other);
    return error;
}

int main(int argc, char** argv) {
    try {
        const std::string what = argc > 1 ? argv[1] : "";
        if (what == "items") {
            PrintItems();
        } else if (what == "many" && argc == 4) {
            PrintMany(std::strtoul(argv[2], nullptr, 10), std::strtoul(argv[3], nullptr, 10) * KIB);
        } else if (what == "stack") {
            PrintStack();
        } else if (what == "start" && argc == 3) {
            PrintStart(argv[2]);
        } else {
            std::fprintf(stderr, "usage: footprint items | many COUNT STACK_KIB | stack | start BUILD\n");
            return 2;
        }
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "footprint: %s\n", fault.what());
        return 1;
    }
    return 0;
}
