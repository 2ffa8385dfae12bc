/// The page of a lab that plays: what passes, and what is typed there.
#pragma once

#include <string>

#include "lab/page_feed.h"
#include "lab/page_server.h"
#include "lab/printer.h"
#include "lab/session.h"

namespace csi_lab {

/// What the page shows, from the first message on.
class live_page {
public:
    explicit live_page(page_address at);

    /// Any thread may use it.
    [[nodiscard]] page_feed& feed() { return feed_; }

    /// Serves the page while it lives. The session and the page must outlive it.
    class serving {
    public:
        /// Says where the page is. Throws std::runtime_error when the address cannot be bound.
        serving(live_page& page, session& of, printer& to);
        ~serving();
        serving(const serving&) = delete;
        serving& operator=(const serving&) = delete;

    private:
        page_feed& feed_;
        printer& to_;
        page_server server_;
    };

private:
    const page_address at_;
    page_feed feed_;
};

/// Executes "csi_lab view": serves the recording until a signal arrives. Throws input_error.
[[nodiscard]] int view_recording(const std::string& path, const page_address& at);

} // namespace csi_lab
