// soak BUILD DIRECTORY SECONDS TABLE [SEED]: the service of a build serves many clients, in the sandbox; what
// it held meanwhile becomes a table.
//
// What grows with the number of requests shows after many of them alone: each client uses the service as fast
// as it answers, while its process is looked at from outside.
#include <algorithm>
#include <fstream>
#include <iterator>
#include <thread>

#include "rude_client.h"
#include "support/host_process.h"

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

appcfg::Item CreateSharedItem(appcfg::Connection& connection, const std::string& directory) {
    appcfg::ItemDescription description{SHARED_ITEM};
    description.saveStrategy = SystemServer::ConfigStrategy::DELAY;
    description.path = directory + "/shared";
    description.backupPath = description.path + ".backup";
    std::ofstream file(description.path);
    for (unsigned client = 0; client < CLIENTS; ++client) {
        file << (client == 0 ? "{" : ",") << '"' << SharedKey(client) << "\": \"0\"";
    }
    file << "}" << std::flush;
    return connection.Create(description);
}

// What a process holds at one moment.
struct ProcessSample {
    double memory; // resident, in MiB
    double threads;
    double descriptors;
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

double Median(std::vector<double> values, size_t from, size_t to) {
    const auto at = [&](size_t index) { return values.begin() + static_cast<std::ptrdiff_t>(index); };
    const auto middle = at(from + (to - from) / 2);
    std::nth_element(at(from), middle, at(to));
    return *middle;
}

ProcessSample SampleProcess(pid_t pid) {
    constexpr double PAGES_IN_A_MIB = 256;
    const std::string directory = "/proc/" + std::to_string(pid);
    double size = 0;
    double resident = 0;
    std::ifstream(directory + "/statm") >> size >> resident;
    const auto count = [&](const char* name) {
        const std::filesystem::directory_iterator entries(directory + name);
        return static_cast<double>(std::distance(begin(entries), end(entries)));
    };
    return {resident / PAGES_IN_A_MIB, count("/task"), count("/fd")};
}

// One run: a service of its own, its clients on a thread each, and what is seen of it meanwhile, printed as
// a table. Owned and used by main's thread.
class SoakRun {
public:
    // The service of that build, with the directory as its framework root and for the clients' files.
    SoakRun(const std::string& build, const std::string& directory, double seconds, const std::string& table,
            unsigned seed) :
        m_host(build, directory),
        m_seconds(seconds), m_table(table), m_seed(seed) {}

    // What went wrong first, or nothing.
    std::string Run() {
        m_host.Start();
        const ProcessSample before = SampleProcess(m_host.Pid());
        std::printf("service %d, seed %u; before its %u clients: %.1f MiB, %.0f threads, %.0f descriptors\n",
                    m_host.Pid(), m_seed, CLIENTS, before.memory, before.threads, before.descriptors);
        std::printf("%8s %10s %8s %12s %10s\n", "seconds", "MiB", "threads", "descriptors", "replies/s");
        ServeClients();
        if (m_tally.Failure().empty()) {
            ExpectAllReleased(before);
            ExpectLevelMemory();
        }
        const int status = m_host.Stop();
        std::printf("the service ended with status %d\n", status);
        m_tally.Expect(status == 0, "the service ended badly");
        return m_tally.Failure();
    }

private:
    using Clock = std::chrono::steady_clock;

    void ServeClients() {
        appcfg::Connection connection;
        appcfg::Item shared = CreateSharedItem(connection, m_host.Root());
        for (unsigned client = 0; client < CLIENTS; ++client) {
            client < CLIENTS - RUDE_CLIENTS ? Start<HonestClient>(client) : Start<RudeClient>(client);
        }
        Watch();
        for (std::thread& thread : m_threads) {
            thread.join();
        }
        shared.Release();
    }

    template <class Client>
    void Start(unsigned number) {
        auto client = std::make_shared<Client>(number, m_seed, m_host.Root(), m_tally);
        ++m_running;
        m_threads.emplace_back([this, number, client] {
            try {
                while (!m_tally.HasEnded()) {
                    client->Live();
                }
            } catch (const std::exception& fault) {
                m_tally.Fail("client " + std::to_string(number) + ", " + client->Describe() + ": " +
                             fault.what());
            }
            --m_running;
        });
    }

    // Until the last client is done. A service that falls silent is killed, which ends all waiting
    // for it.
    void Watch() {
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

    void TakeSample(double seconds) {
        try {
            const ProcessSample sample = SampleProcess(m_host.Pid());
            const uint64_t replies = m_tally.Replies();
            const double rate =
                static_cast<double>(replies - std::exchange(m_replies, replies)) / (seconds - m_sampled);
            m_sampled = seconds;
            m_memory.push_back(sample.memory);
            char row[100];
            std::snprintf(row, sizeof row, "%8.1f %10.1f %8.0f %12.0f %10.0f\n", seconds, sample.memory,
                          sample.threads, sample.descriptors, rate);
            m_table << row << std::flush;
            if (seconds >= m_nextRow) {
                std::fputs(row, stdout);
                m_nextRow += m_seconds / TABLE_ROWS;
            }
        } catch (const std::exception& fault) {
            m_tally.Fail(std::string("the service is gone: ") + fault.what());
        }
    }

    // The service notices the end of a connection a little later than its client, and ends the items then.
    void ExpectAllReleased(const ProcessSample& before) {
        const auto deadline = Clock::now() + LONGEST_SILENCE;
        ProcessSample after = before;
        bool isReleased = false;
        while (!isReleased && Clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            after = SampleProcess(m_host.Pid());
            isReleased = after.threads == before.threads + SANITIZER_THREADS &&
                         after.descriptors == before.descriptors;
        }
        std::printf("after them: %.1f MiB, %.0f threads, %.0f descriptors\n", after.memory, after.threads,
                    after.descriptors);
        m_tally.Expect(isReleased, "threads or descriptors are not what they were before the clients");
    }

    void ExpectLevelMemory() {
        const size_t quarter = m_memory.size() / 4;
        if (quarter == 0) {
            m_tally.Fail("the run was too short to see memory");
            return;
        }
        const double before = Median(m_memory, quarter, 2 * quarter);
        const double after = Median(m_memory, 3 * quarter, m_memory.size());
        m_tally.Expect(after <= before * (1 + MAX_GROWTH) + MAX_GROWTH_MIB,
                       "memory grew from " + std::to_string(before) + " MiB (second quarter) to " +
                           std::to_string(after) + " MiB (last quarter)");
    }

    Support::HostProcess m_host;
    const double m_seconds;
    std::ofstream m_table;
    const unsigned m_seed;
    Tally m_tally;
    std::vector<std::thread> m_threads;
    std::atomic<unsigned> m_running{0};
    std::vector<double> m_memory;
    uint64_t m_replies = 0; // at the last sample,
    double m_sampled = 0;   // which was taken so many seconds after the begin
    double m_nextRow = 0;   // of what is printed, in seconds
};

int Soak(int argc, char** argv) {
    if (argc != 5 && argc != 6) {
        std::fprintf(stderr, "usage: soak BUILD DIRECTORY SECONDS TABLE [SEED]\n");
        return 2;
    }
    ::setenv("KESTREL_ROOT", argv[2], 1);
    NoteInterrupts(); // the service would outlive a run that just ends
    const unsigned seed = argc == 6 ? static_cast<unsigned>(std::stoul(argv[5])) : std::random_device()();
    const std::string failure = SoakRun(argv[1], argv[2], std::stod(argv[3]), argv[4], seed).Run();
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
    return Endurance::RunProgram(argc, argv, Endurance::Soak);
}
