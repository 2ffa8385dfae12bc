#include "lab/lines.h"

#include "lab/input_error.h"

namespace csi_lab {

bool read_line(std::istream& from, std::string& line) {
    using traits = std::istream::traits_type;
    line.clear();
    while (true) {
        const traits::int_type next = from.rdbuf()->sbumpc();
        if (next == '\n' || next == traits::eof()) {
            return next == '\n' || !line.empty();
        }
        if (next == '\0') {
            throw input_error("not a text file: it contains NUL bytes");
        }
        if (line.size() == max_line_size) {
            throw input_error("not a text file: a line is longer than 16 MiB");
        }
        line += traits::to_char_type(next);
    }
}

} // namespace csi_lab
