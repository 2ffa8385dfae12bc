/// Log lines, the log file and its rotation.
///
/// All output goes to standard output, which log_redirection points at the log file while that is
/// in use. Any thread may write: each line goes out whole and flushed.
#pragma once

#include <ctime>
#include <initializer_list>
#include <ios>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "daemon/log_stream.h"

namespace csi_receiver {

/// The directory of the log file, without a trailing "/", its name, and the open file. Empty and
/// closed until the client opens the log.
extern std::string log_path;
extern std::string log_file;
extern log_stream log_out;

/// A log file of more bytes than this is rotated.
constexpr std::streamoff log_size_limit = 2097152;

/// One line under construction. The destructor adds the line end and writes the line.
class log_line {
public:
    explicit log_line(std::string prefix)
        : text_(std::move(prefix)) {}
    ~log_line();
    log_line(const log_line&) = delete;
    log_line& operator=(const log_line&) = delete;

    log_line& operator<<(std::string_view text) {
        text_ += text;
        return *this;
    }
    template<class number, class = std::enable_if_t<std::is_integral_v<number>>>
    log_line& operator<<(number added) {
        static_assert(sizeof added >= sizeof(short), "characters and truth values are not numbers");
        text_ += std::to_string(added);
        return *this;
    }

private:
    std::string text_; // constructing a stream per line would cost more than the line
};

/// Begins a line with the current time: `log_prefix() << "text";`
[[nodiscard]] log_line log_prefix();

/// "[2026-3-7_9:5:1] ": UTC, without padding.
[[nodiscard]] std::string format_log_prefix(std::time_t time);

/// Writes the texts as they are, one after the other and without a prefix. Allocates no memory.
void print(std::string_view text);
void print(std::initializer_list<std::string_view> texts);

/// Writes the text to the standard output that the process was started with, wherever standard
/// output points now.
void print_to_console(std::string_view text);

/// Writes the text to the standard error that the process was started with, and to the log file
/// while that is in use.
void print_error(std::string_view text);

/// Makes room for a new log at `path`: the file becomes ".1", ".1" becomes ".2" and ".2" becomes
/// ".3". Does nothing when the file is absent or empty. Failures are ignored.
void rotate(const std::string& path);

/// Points standard output and standard error at the log file while it lives, and gives them their
/// own buffers back in the end. The file stays open. One at a time; main thread only.
class log_redirection {
public:
    /// Makes the directory, rotates the log and opens the file. When that cannot be opened, all
    /// output is lost.
    log_redirection(const std::string& directory, const std::string& name);
    ~log_redirection();
    log_redirection(const log_redirection&) = delete;
    log_redirection& operator=(const log_redirection&) = delete;

    /// Rotates the log when it has grown past its limit, and logs that as the first line of the new
    /// file. Makes no system call otherwise. True when it rotated.
    bool rotate_if_grown();

private:
    std::string path_;
};

} // namespace csi_receiver
