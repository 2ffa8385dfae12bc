/// The page of a lab that plays: what passes, and what is typed there.
#pragma once

#include <memory>
#include <string>

#include "lab/page_feed.h"
#include "lab/page_server.h"
#include "lab/session.h"

namespace csi_lab {

/// Records from construction on, and serves from serve() on. Any thread may use the feed.
class live_page {
public:
    explicit live_page(page_address at);
    ~live_page();
    live_page(const live_page&) = delete;
    live_page& operator=(const live_page&) = delete;

    [[nodiscard]] page_feed& feed() { return feed_; }

    /// The session must outlive the serving, which ends with close(). Throws std::runtime_error
    /// when the address cannot be bound.
    void serve(session& of);
    void close();

    [[nodiscard]] std::string url() const { return server_->url(); }

private:
    [[nodiscard]] std::string read(std::uint64_t from, session& of);

    const page_address at_;
    page_feed feed_;
    std::unique_ptr<page_server> server_;
};

/// Executes "csi_lab view": serves the recording until a signal arrives. Throws input_error.
[[nodiscard]] int view_recording(const std::string& path, const page_address& at);

} // namespace csi_lab
