// What a request cannot be cheaper than: the document library's own lookup, set and save, the disk's
// truncation, write and fsync of the same bytes, and one wake-up of a thread on the same processor.
//   speed_bare json|xml|ini FILE KEY OUTPUT
// Prints the medians in us: lookup, set, fragment (the value as text, for XML by the library's writer), save,
// disk, wake-up.
#include <Poco/AutoPtr.h>
#include <Poco/DOM/DOMParser.h>
#include <Poco/DOM/DOMWriter.h>
#include <Poco/DOM/Document.h>
#include <Poco/Util/IniFileConfiguration.h>
#include <Poco/Util/JSONConfiguration.h>
#include <Poco/Util/XMLConfiguration.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Configuration = Poco::Util::AbstractConfiguration;

// The median of many times, each of `batch` calls.
double Microseconds(int times, int batch, const std::function<void()>& call) {
    std::vector<double> all;
    for (int at = 0; at < times; ++at) {
        const auto start = Clock::now();
        for (int each = 0; each < batch; ++each) {
            call();
        }
        all.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count() / batch);
    }
    std::sort(all.begin(), all.end());
    return all[all.size() / 2];
}

void WriteDurably(const std::string& path, const std::string& text) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (write(fd, text.data(), text.size()) < 0 || fsync(fd) != 0) {
        std::perror(path.c_str());
    }
    close(fd);
}

// There and back again: half of it is one wake-up.
double WakeUp() {
    std::mutex mutex;
    std::condition_variable changed;
    int turn = 0;
    const auto wait = [&](int mine) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return turn == mine || turn < 0; });
        turn = turn < 0 ? turn : 1 - mine;
        changed.notify_one();
        return turn >= 0;
    };
    std::thread other([&] {
        while (wait(1)) {
        }
    });
    const double cost = Microseconds(200, 100, [&] { wait(0); }) / 2;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        turn = -1;
    }
    changed.notify_one();
    other.join();
    return cost;
}

// One element with a text, as the library writes it.
double WriteElement() {
    const Poco::AutoPtr<Poco::XML::Document> document(Poco::XML::DOMParser().parseString("<k>v</k>"));
    return Microseconds(200, 50, [&] {
        std::ostringstream stream;
        Poco::XML::DOMWriter().writeNode(stream, document->documentElement());
    });
}

template <typename Saved>
double Save(Saved& configuration, std::string& text) {
    return Microseconds(15, 1, [&] {
        std::ostringstream stream;
        configuration.save(stream);
        text = stream.str();
    });
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        return 2;
    }
    const std::string format = argv[1];
    const std::string key = argv[3];
    std::string text;
    double save = 0;
    Poco::AutoPtr<Configuration> configuration;
    if (format == "json") {
        Poco::AutoPtr<Poco::Util::JSONConfiguration> json(new Poco::Util::JSONConfiguration(argv[2]));
        save = Save(*json, text);
        configuration = json;
    } else if (format == "xml") {
        Poco::AutoPtr<Poco::Util::XMLConfiguration> xml(new Poco::Util::XMLConfiguration(argv[2]));
        save = Save(*xml, text);
        configuration = xml;
    } else {
        configuration = new Poco::Util::IniFileConfiguration(argv[2]);
        text = "x";
    }
    const double lookup = Microseconds(200, 50, [&] { configuration->getString(key); });
    const double set = Microseconds(200, 50, [&] { configuration->setString(key, "w"); });
    const double disk = Microseconds(40, 1, [&] { WriteDurably(argv[4], text); });
    const double fragment = format == "xml" ? lookup + WriteElement() : lookup;
    std::printf("%.3f %.3f %.3f %.2f %.2f %.3f\n", lookup, set, fragment, save, disk, WakeUp());
}
