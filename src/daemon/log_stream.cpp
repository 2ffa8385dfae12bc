#include "daemon/log_stream.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace csi_receiver {
namespace {

constexpr int flags = O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

descriptor open_file(const std::string& path) {
    descriptor present(open(path.c_str(), flags));
    if (present.is_open() || errno != ENOENT) {
        return present;
    }
    constexpr mode_t mode = 0644; // also with the empty file mask of a daemonised process
    return descriptor(open(path.c_str(), flags | O_CREAT | O_EXCL, mode));
}

} // namespace

log_stream::log_stream()
    : std::ostream(nullptr) {
    rdbuf(&buffer_);
}

void log_stream::open(const std::string& path) {
    buffer_.file = open_file(path);
    if (!buffer_.file.is_open()) {
        setstate(failbit);
        return;
    }
    clear();
    struct stat status {};
    if (fstat(buffer_.file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
        ftruncate(buffer_.file.get(), 0) != 0) {
        setstate(failbit);
    }
}

void log_stream::close() {
    buffer_.file.reset();
}

std::streamsize log_stream::file_buffer::xsputn(const char* text, std::streamsize length) {
    std::streamsize written = 0;
    while (written < length) {
        const ssize_t count =
            ::write(file.get(), text + written, static_cast<std::size_t>(length - written));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        written += count;
    }
    return written;
}

log_stream::file_buffer::int_type log_stream::file_buffer::overflow(int_type character) {
    const char one = traits_type::to_char_type(character);
    return xsputn(&one, 1) == 1 ? character : traits_type::eof();
}

} // namespace csi_receiver
