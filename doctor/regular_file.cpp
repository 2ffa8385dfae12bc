#include "doctor/regular_file.h"

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

#include "platform/descriptor.h"

namespace csi_doctor {
namespace {

/// Reads until the limit or the end. False, with errno, on a read error.
bool read_some(int fd, std::size_t limit, std::string& text) {
    std::array<char, 65536> buffer{};
    ssize_t count = 0;
    do {
        count = read(fd, buffer.data(), buffer.size());
        text.append(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    } while (text.size() < limit && (count > 0 || (count < 0 && errno == EINTR)));
    return count >= 0;
}

regular_file failed(regular_file file) {
    file.outcome = read_outcome::error;
    file.error = errno;
    return file;
}

} // namespace

regular_file read_regular_file(const std::string& path, std::size_t limit) {
    regular_file file;
    if (stat(path.c_str(), &file.status) != 0) {
        return failed(file);
    }
    if (!S_ISREG(file.status.st_mode)) {
        file.outcome = read_outcome::not_regular;
        return file;
    }
    const csi_receiver::descriptor opened(
        open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!opened.is_open() || fstat(opened.get(), &file.status) != 0) {
        return failed(file);
    }
    if (!S_ISREG(file.status.st_mode)) { // replaced in the meantime
        file.outcome = read_outcome::not_regular;
        return file;
    }
    if (!read_some(opened.get(), limit, file.text)) {
        return failed(file);
    }
    if (file.text.size() >= limit) {
        file.outcome = read_outcome::too_large;
    }
    return file;
}

const char* describe_kind(mode_t mode) {
    return S_ISFIFO(mode)   ? "a FIFO"
           : S_ISSOCK(mode) ? "a socket"
           : S_ISCHR(mode)  ? "a character device"
                            : "a block device";
}

} // namespace csi_doctor
