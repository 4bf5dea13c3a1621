// soak BUILD DIRECTORY SECONDS TABLE [SEED]: the service of a build serves many clients, in the sandbox; what
// it held meanwhile becomes a table.
//
// What grows with the number of requests shows after many of them alone: each client uses the service as fast
// as it answers, while its process is looked at from outside.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "appcfg/connection.h"
#include "honest_client.h"
#include "rude_client.h"
#include "support/host_process.h"
#include "tally.h"

namespace Endurance {

namespace {

constexpr unsigned CLIENTS = 50;
constexpr unsigned RUDE_CLIENTS = 8;

constexpr std::chrono::milliseconds SAMPLE_EVERY(500);
constexpr int TABLE_ROWS = 20;

// Threads that a sanitizer starts beside the first one of the service.
#if defined(__SANITIZE_THREAD__)
constexpr double SANITIZER_THREADS = 1;
#else
constexpr double SANITIZER_THREADS = 0;
#endif

// A timing strategy that is stopped in the wrong instant holds the service up for its period of a minute.
constexpr std::chrono::seconds LONGEST_SILENCE(90);

// JSON or XML with a value and a reference to it for each client.
std::string SharedText(bool isJson) {
    std::string members;
    for (unsigned client = 0; client < CLIENTS; ++client) {
        for (const std::string& key : {SharedKey(client), SharedReference(client)}) {
            const std::string name = key.substr(key.find('.') + 1);
            const std::string value = key == SharedKey(client) ? "0" : "${" + SharedKey(client) + "}";
            members += isJson ? (members.empty() ? "" : ", ") + ('"' + name + "\": \"" + value + '"')
                              : '<' + name + '>' + value + "</" + name + '>';
        }
    }
    return isJson ? "{\"all\": {" + members + "}}" : "<soak><all>" + members + "</all></soak>";
}

// Items with a key for each client: one saves at once, the other late.
std::vector<appcfg::Item> CreateSharedItems(appcfg::Connection& connection, const std::string& directory) {
    using namespace SystemServer;
    std::vector<appcfg::Item> items;
    for (const appcfg::Handle& handle : SHARED_ITEMS) {
        const bool isFirst = items.empty();
        appcfg::ItemDescription description{handle};
        description.storage = isFirst ? ConfigStorageType::JSON : ConfigStorageType::XML;
        description.saveStrategy = isFirst ? ConfigSaveStrategy::INSTANT : ConfigSaveStrategy::DELAY;
        description.backupStrategy = ConfigBackupStrategy::TIMING;
        description.path = directory + "/shared" + std::to_string(handle.Index());
        description.backupPath = description.path + ".backup";
        std::ofstream(description.path) << SharedText(isFirst);
        items.push_back(connection.Create(description));
    }
    return items;
}

// What a process holds at one moment.
struct ProcessSample {
    double seconds = 0; // since the run began
    double memory = 0;  // resident, in MiB
    double descriptors = 0;
    double threads = 0;
    uint64_t replies = 0; // of the whole run
    double rate = 0;      // replies per second since the sample before
};

// What the median of the run's last quarter may be above that of its second: a part of it, and a size.
// The number of items, their documents and the threads' heaps wander by that much. A leak of four bytes in
// each request is more within ten minutes.
// Sanitizers keep freed memory and the history of accesses, until these are full.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double MAX_GROWTH = 0.5;
constexpr double MAX_GROWTH_MIB = 50;
#else
constexpr double MAX_GROWTH = 0.1;
constexpr double MAX_GROWTH_MIB = 1;
#endif

// The number behind a name in a file of /proc.
double NumberIn(const std::string& path, const std::string& name) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, name.size(), name) == 0) {
            return std::stod(line.substr(name.size()));
        }
    }
    throw std::runtime_error(path + " has no line " + name);
}

double MedianMemory(const std::vector<ProcessSample>& samples, size_t from, size_t to) {
    std::vector<double> values;
    for (size_t i = from; i < to; ++i) {
        values.push_back(samples[i].memory);
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

ProcessSample SampleProcess(pid_t pid) {
    const std::string directory = "/proc/" + std::to_string(pid);
    ProcessSample sample;
    sample.memory = NumberIn(directory + "/status", "VmRSS:") / 1024;
    sample.threads = NumberIn(directory + "/status", "Threads:");
    const std::filesystem::directory_iterator descriptors(directory + "/fd");
    sample.descriptors = static_cast<double>(std::distance(begin(descriptors), end(descriptors)));
    return sample;
}

// Why the memory of the run is not level, or nothing when it is.
std::string FaultOfMemory(const std::vector<ProcessSample>& samples) {
    const size_t quarter = samples.size() / 4;
    if (quarter == 0) {
        return "the run was too short to see memory";
    }
    const double before = MedianMemory(samples, quarter, 2 * quarter);
    const double after = MedianMemory(samples, 3 * quarter, samples.size());
    char text[120];
    std::snprintf(text, sizeof text, "memory grew from %.1f MiB (second quarter) to %.1f MiB (last quarter)",
                  before, after);
    return after > before * (1 + MAX_GROWTH) + MAX_GROWTH_MIB ? text : "";
}

std::atomic<bool> g_interrupted{false};

void Interrupt(int) {
    g_interrupted = true;
}

// One run: a service of its own, its clients on a thread each, and what is seen of it meanwhile, printed as
// a table. Owned and used by main's thread.
class SoakRun {
public:
    // The service of that build, with the directory as its framework root and for the clients' files.
    SoakRun(const std::string& build, const std::string& directory, double seconds, unsigned seed) :
        m_host(build, directory), m_seconds(seconds), m_seed(seed) {}

    // What went wrong first, or nothing.
    std::string Run();

    const std::vector<ProcessSample>& Samples() const { return m_samples; }
    std::map<std::string, uint64_t> Counts() const { return m_tally.Counts(); }

private:
    using Clock = std::chrono::steady_clock;

    void ServeClients();
    template <class Client>
    void Start(Client& client);
    void Watch();
    void TakeSample(double seconds);
    void ExpectAllReleased(const ProcessSample& before);

    Support::HostProcess m_host;
    const double m_seconds;
    const unsigned m_seed;
    Tally m_tally;
    std::vector<std::thread> m_threads;
    std::atomic<unsigned> m_running{0};
    std::vector<ProcessSample> m_samples;
    double m_nextRow = 0; // of the table, in seconds
};

std::string SoakRun::Run() {
    m_host.Start();
    const ProcessSample before = SampleProcess(m_host.Pid());
    std::printf("service %d, seed %u; before its %u clients: %.1f MiB, %.0f threads, %.0f descriptors\n",
                m_host.Pid(), m_seed, CLIENTS, before.memory, before.threads, before.descriptors);
    std::printf("%8s %10s %8s %12s %10s\n", "seconds", "MiB", "threads", "descriptors", "replies/s");
    ServeClients();
    if (m_tally.Failure().empty()) {
        ExpectAllReleased(before);
        const std::string fault = FaultOfMemory(m_samples);
        if (!fault.empty()) {
            m_tally.Fail(fault);
        }
    }
    const int status = m_host.Stop();
    std::printf("the service ended with status %d\n", status);
    if (status != 0) {
        m_tally.Fail("the service ended badly");
    }
    return m_tally.Failure();
}

void SoakRun::ServeClients() {
    appcfg::Connection connection;
    std::vector<appcfg::Item> shared = CreateSharedItems(connection, m_host.Root());
    std::deque<HonestClient> honest;
    std::deque<RudeClient> rude;
    for (unsigned client = 0; client < CLIENTS; ++client) {
        if (client < CLIENTS - RUDE_CLIENTS) {
            Start(honest.emplace_back(client, m_seed, m_host.Root(), m_tally));
        } else {
            Start(rude.emplace_back(client, m_seed, m_host.Root(), m_tally));
        }
    }
    Watch();
    for (std::thread& thread : m_threads) {
        thread.join();
    }
    for (appcfg::Item& item : shared) {
        item.Release();
    }
}

template <class Client>
void SoakRun::Start(Client& client) {
    ++m_running;
    m_threads.emplace_back([this, &client] {
        client.Run();
        --m_running;
    });
}

// Until the last client is done. A service that falls silent is killed, which ends all waiting for it.
void SoakRun::Watch() {
    const auto begin = Clock::now();
    auto lastReply = begin;
    uint64_t replies = 0;
    for (auto next = begin + SAMPLE_EVERY; m_running > 0; next += SAMPLE_EVERY) {
        std::this_thread::sleep_until(next);
        const auto now = Clock::now();
        const double seconds = std::chrono::duration<double>(now - begin).count();
        if (g_interrupted) {
            m_tally.Fail("interrupted");
        } else if (seconds >= m_seconds) {
            m_tally.End();
        }
        if (!m_tally.HasEnded()) {
            TakeSample(seconds);
        }
        if (m_tally.Replies() != replies) {
            replies = m_tally.Replies();
            lastReply = now;
        } else if (now > lastReply + LONGEST_SILENCE) {
            m_tally.Fail("the service fell silent");
            m_host.SendKill();
        }
    }
}

void SoakRun::TakeSample(double seconds) {
    try {
        ProcessSample sample = SampleProcess(m_host.Pid());
        const ProcessSample last = m_samples.empty() ? ProcessSample() : m_samples.back();
        sample.seconds = seconds;
        sample.replies = m_tally.Replies();
        sample.rate = static_cast<double>(sample.replies - last.replies) / (seconds - last.seconds);
        m_samples.push_back(sample);
        if (seconds >= m_nextRow) {
            std::printf("%8.1f %10.1f %8.0f %12.0f %10.0f\n", seconds, sample.memory, sample.threads,
                        sample.descriptors, sample.rate);
            m_nextRow += m_seconds / TABLE_ROWS;
        }
    } catch (const std::exception& fault) {
        m_tally.Fail(std::string("the service is gone: ") + fault.what());
    }
}

// The service notices the end of a connection a little later than its client, and ends the items then.
void SoakRun::ExpectAllReleased(const ProcessSample& before) {
    const auto deadline = Clock::now() + LONGEST_SILENCE;
    ProcessSample after;
    bool isReleased = false;
    do {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        after = SampleProcess(m_host.Pid());
        isReleased =
            after.threads == before.threads + SANITIZER_THREADS && after.descriptors == before.descriptors;
    } while (!isReleased && Clock::now() < deadline);
    std::printf("after them: %.1f MiB, %.0f threads, %.0f descriptors\n", after.memory, after.threads,
                after.descriptors);
    if (!isReleased) {
        m_tally.Fail("threads or descriptors are not what they were before the clients");
    }
}

int Main(const std::string& build, const std::string& directory, double seconds, const std::string& table,
         unsigned seed) {
    ::setenv("KESTREL_ROOT", directory.c_str(), 1);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    // The service would outlive a run that just ends.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(signal, Interrupt);
    }
    SoakRun run(build, directory, seconds, seed);
    const std::string failure = run.Run();
    std::printf("met, or answered as expected:\n");
    for (const auto& [what, count] : run.Counts()) {
        std::printf("  %-28s %10llu\n", what.c_str(), static_cast<unsigned long long>(count));
    }
    std::ofstream rows(table);
    for (const ProcessSample& sample : run.Samples()) {
        rows << sample.seconds << ' ' << sample.memory << ' ' << sample.threads << ' ' << sample.descriptors
             << ' ' << sample.rate << '\n';
    }
    if (!failure.empty()) {
        std::printf("FAILED: %s\n", failure.c_str());
        return EXIT_FAILURE;
    }
    std::printf("no wrong reply, memory level, threads and descriptors released\n");
    return EXIT_SUCCESS;
}

} // namespace

} // namespace Endurance

int main(int argc, char** argv) {
    if (argc != 5 && argc != 6) {
        std::fprintf(stderr, "usage: soak BUILD DIRECTORY SECONDS TABLE [SEED]\n");
        return 2;
    }
    try {
        const unsigned seed = argc == 6 ? static_cast<unsigned>(std::stoul(argv[5])) : std::random_device()();
        return Endurance::Main(argv[1], argv[2], std::stod(argv[3]), argv[4], seed);
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "soak: %s\n", fault.what());
        return EXIT_FAILURE;
    }
}
