/// The stream of the log file, opened so that no name can harm the system or hang the daemon.
#pragma once

#include <ostream>
#include <streambuf>
#include <string>

#include "platform/descriptor.h"

namespace csi_receiver {

/// An unbuffered output stream to a file. Used under the log's mutex.
class log_stream : public std::ostream {
public:
    log_stream();

    /// Opens the file for writing and truncates it; sets the fail state when that is refused. An
    /// absent file is created with mode 0644 at most and never through a link. A file that is there
    /// keeps its mode, be it a regular file, a device or a FIFO, also behind a link. Never blocks:
    /// a FIFO without a reader is refused, and what a FIFO or a device does not take is lost.
    void open(const std::string& path);
    [[nodiscard]] bool is_open() const { return buffer_.file.is_open(); }
    void close();

private:
    struct file_buffer : std::streambuf {
        descriptor file;

    protected:
        std::streamsize xsputn(const char* text, std::streamsize length) override;
        int_type overflow(int_type character) override;
    };

    file_buffer buffer_;
};

} // namespace csi_receiver
