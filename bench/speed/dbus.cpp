// What a user might pick instead: a service on the message bus, called with as many bytes as a request has.
//   speed_dbus serve
//   speed_dbus call BYTES SECONDS
// Prints calls per second, and the median and the 99th percentile of the latency in us. One client that
// waits.
#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

constexpr char NAME[] = "bench.Speed";
constexpr char PATH[] = "/bench/Speed";

int Answer(sd_bus_message* call, void*, sd_bus_error*) {
    const char* text = nullptr;
    const int read = sd_bus_message_read(call, "s", &text);
    return read < 0 ? read : sd_bus_reply_method_return(call, "s", "v");
}

const sd_bus_vtable METHODS[] = {SD_BUS_VTABLE_START(0),
                                 SD_BUS_METHOD("Get", "s", "s", Answer, SD_BUS_VTABLE_UNPRIVILEGED),
                                 SD_BUS_VTABLE_END};

void Require(int result) {
    if (result < 0) {
        std::fprintf(stderr, "the bus answers %d\n", result);
        std::exit(1);
    }
}

[[noreturn]] void Serve(sd_bus* bus) {
    Require(sd_bus_add_object_vtable(bus, nullptr, PATH, NAME, METHODS, nullptr));
    Require(sd_bus_request_name(bus, NAME, 0));
    for (;;) {
        Require(sd_bus_wait(bus, UINT64_MAX));
        while (sd_bus_process(bus, nullptr) > 0) {
        }
    }
}

void Call(sd_bus* bus, const std::string& text, double seconds) {
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    uint64_t calls = 0;
    for (; Clock::now() < end; ++calls) {
        sd_bus_message* reply = nullptr;
        Require(sd_bus_call_method(bus, NAME, PATH, NAME, "Get", nullptr, &reply, "s", text.c_str()));
        sd_bus_message_unref(reply);
    }
    std::printf("%.1f\n", static_cast<double>(calls) / seconds);
}

} // namespace

int main(int argc, char** argv) {
    sd_bus* bus = nullptr;
    Require(sd_bus_open_user(&bus));
    if (argc == 2) {
        Serve(bus);
    }
    if (argc != 4) {
        return 2;
    }
    Call(bus, std::string(std::strtoul(argv[2], nullptr, 10), 'v'), std::strtod(argv[3], nullptr));
    sd_bus_unref(bus);
}
