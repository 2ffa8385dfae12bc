// A configuration file: its lines one by one, and as a whole.
#include "daemon/configuration.h"

#include <fstream>

#include <sys/mman.h>

#include "harness.h"
#include "platform/utilities.h"

using namespace csi_receiver;

void fuzz::run(const std::string& input) {
    configuration expected;
    std::istringstream lines(input);
    for (std::string text; std::getline(lines, text);) {
        const auto [key, value, accepted] = parse_line(text, '=');
        assert(accepted == !value.empty() && (text[0] != '#' || !accepted));
        assert(trim(key) == key && trim(value) == value && value.find('#') == std::string::npos);
        assert(key.find_first_of("=ABCDEFGHIJKLMNOPQRSTUVWXYZ") == std::string::npos);
        // Reading the result again changes nothing, except that a key after blanks may start with
        // the "#" of a comment.
        const auto again = parse_line(std::string(key).append("=").append(value), '=');
        assert(key[0] == '#' || (again.key == key && again.value == value));
        if (accepted) {
            expected[key] = value;
        }
    }
    static const std::string path = "/proc/self/fd/" + std::to_string(memfd_create("input", 0));
    std::ofstream(path) << input;
    assert(read_configuration(path, '=') == expected);
}
