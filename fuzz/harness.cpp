#include "harness.h"

#include <iostream>

#include "core/requests.h"

std::optional<std::string> csi_receiver::ask(const std::string& /*address*/, std::uint16_t port,
                                             const std::string& text,
                                             const attempt_timeouts& /*timeouts_ms*/) {
    return fuzz::answer ? fuzz::answer(port, text) : std::string();
}

void json::assertion_failed(const char* /*file*/, int /*line*/, const char* /*expression*/) {
    assert(fuzz::end_expected);
    fuzz::end_expected = false;
    fuzz::answer = nullptr; // the client's destructors get no answers
    throw fuzz::daemon_end();
}

// NOLINTNEXTLINE(readability-identifier-naming): the fuzzer's own name
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::cout.rdbuf(fuzz::log.rdbuf());
    fuzz::log.str("");
    try {
        fuzz::run(std::string(data, data + size));
        assert(!fuzz::end_expected);
    } catch (const fuzz::daemon_end&) {
    }
    return 0;
}
