#include "daemon/log.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <new>

#include <sys/stat.h>

namespace csi_receiver {

std::string log_path;
std::string log_file;
log_stream log_out;

namespace {

/// The log's mutex, and what it guards besides the streams.
struct log_state {
    std::mutex mutex;
    std::streambuf* own_output = nullptr; // set while the streams point at the log file
    std::streambuf* own_error = nullptr;
    std::streamoff position = 0; // bytes in the open log file
    bool torn = false;           // the last line is incomplete: the disk was full
};

log_state& state() {
    // Outlives every thread that logs, and needs no memory, of which there may be none.
    alignas(log_state) static unsigned char storage[sizeof(log_state)];
    static log_state& only = *new (storage) log_state;
    return only;
}

/// Takes the SIGPIPE that writing to a pipe without a reader has left pending for this thread. It
/// would be logged otherwise, and each such line would raise the next one.
void discard_broken_pipe() {
    sigset_t broken_pipe;
    sigemptyset(&broken_pipe);
    sigaddset(&broken_pipe, SIGPIPE);
    const timespec at_once{};
    sigtimedwait(&broken_pipe, nullptr, &at_once);
}

bool write_locked(std::ostream& stream, std::string_view text) {
    stream.clear(); // a line lost to a full disk must not stop the next one
    stream.write(text.data(), static_cast<std::streamsize>(text.size()));
    stream.flush();
    if (std::ferror(stdout) != 0) { // uClibc-ng's fflush succeeds although the write failed
        std::clearerr(stdout);
        stream.setstate(std::ios::badbit);
    }
    if (!stream) {
        discard_broken_pipe();
    }
    return stream.good();
}

/// Writes to standard output, wherever that points.
void print_locked(std::string_view text) {
    if (state().torn && write_locked(std::cout, "\n")) {
        ++state().position;
    }
    state().torn = !write_locked(std::cout, text);
    if (!state().torn) {
        state().position += static_cast<std::streamoff>(text.size());
    }
}

bool exists(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

void open_locked(const std::string& path) {
    log_out.open(path);
    state().position = 0;
    state().torn = false;
}

void redirect_locked() {
    state().own_output = std::cout.rdbuf(log_out.rdbuf());
    state().own_error = std::cerr.rdbuf(log_out.rdbuf());
}

void give_back_locked() {
    if (state().own_output == nullptr) {
        return; // done before a rotation that was refused memory
    }
    std::cout.rdbuf(state().own_output);
    std::cerr.rdbuf(state().own_error);
    state().torn = false;
    state().own_output = nullptr;
    state().own_error = nullptr;
}

} // namespace

log_line::~log_line() {
    try {
        text_ += '\n';
    } catch (const std::bad_alloc&) {
        print({text_, "\n"});
        return;
    }
    print(text_); // in one write
}

log_line log_prefix() {
    return log_line(format_log_prefix(std::time(nullptr)));
}

std::string format_log_prefix(std::time_t time) {
    std::tm utc{};
    gmtime_r(&time, &utc);
    constexpr std::size_t usual_line = 120; // one allocation for most lines
    std::string prefix;
    prefix.reserve(usual_line);
    prefix += '[';
    prefix += std::to_string(utc.tm_year + 1900L);
    for (const auto& [before, value] :
         {std::pair('-', utc.tm_mon + 1), std::pair('-', utc.tm_mday), std::pair('_', utc.tm_hour),
          std::pair(':', utc.tm_min), std::pair(':', utc.tm_sec)}) {
        prefix += before;
        prefix += std::to_string(value);
    }
    prefix += "] ";
    return prefix;
}

void print(std::string_view text) {
    print({text});
}

void print(std::initializer_list<std::string_view> texts) {
    const std::lock_guard<std::mutex> lock(state().mutex);
    for (const std::string_view text : texts) {
        print_locked(text);
    }
}

void print_to_console(std::string_view text) {
    const std::lock_guard<std::mutex> lock(state().mutex);
    std::streambuf* own = state().own_output;
    std::ostream console(own != nullptr ? own : std::cout.rdbuf());
    write_locked(console, text);
}

void print_error(std::string_view text) {
    const std::lock_guard<std::mutex> lock(state().mutex);
    if (state().own_error != nullptr) {
        print_locked(text);
    }
    std::ostream console(state().own_error != nullptr ? state().own_error : std::cerr.rdbuf());
    write_locked(console, text);
}

void rotate(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || status.st_size == 0) {
        return;
    }
    const std::string newest = path + ".1";
    const std::string middle = path + ".2";
    const std::string oldest = path + ".3";
    if (exists(newest)) {
        if (exists(middle)) {
            if (exists(oldest)) {
                std::remove(oldest.c_str());
            }
            std::rename(middle.c_str(), oldest.c_str());
        }
        std::rename(newest.c_str(), middle.c_str());
    }
    std::rename(path.c_str(), newest.c_str());
}

log_redirection::log_redirection(const std::string& directory, const std::string& name)
    : path_(directory + "/" + name) {
    // The system reads a path up to a null character: rotation must add its suffixes there.
    path_.resize(std::min(path_.find('\0'), path_.size()));
    const std::lock_guard<std::mutex> lock(state().mutex);
    mkdir(directory.c_str(), 0705);
    rotate(path_);
    open_locked(path_);
    redirect_locked();
}

log_redirection::~log_redirection() {
    const std::lock_guard<std::mutex> lock(state().mutex);
    give_back_locked();
}

bool log_redirection::rotate_if_grown() {
    {
        const std::lock_guard<std::mutex> lock(state().mutex);
        if (!log_out.is_open() || state().position <= log_size_limit) {
            return false;
        }
        give_back_locked();
        log_out.close();
        rotate(path_);
        open_locked(path_);
        redirect_locked();
        print_locked(format_log_prefix(std::time(nullptr)) + "log rotated\n");
    }
    return true;
}

} // namespace csi_receiver
