// Requests from one connection: each is answered once with a known status, and the registry is as they say.
// Input: any number of requests, each a URI, a method and a letter as fuzz_items.h has them, and the content.
#include "fuzz_items.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Fuzz::AConnection connection;
    for (const std::string& request : Fuzz::Parts(data, size, 0)) {
        if (request.size() >= 3) {
            connection.Asks(Fuzz::ReadRequest(request));
        }
    }
    return 0;
}
