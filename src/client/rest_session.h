/// The conversation with the REST server: attach, poll, and what is sent unasked.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "client/client_state.h"
#include "http/http_client.h"

namespace csi_receiver {

/// Owns the HTTP transport. Main thread only, but for send.
class rest_session {
public:
    /// Takes a message of the server's and fills in the reply, which stays empty when there is
    /// none. False when the server asks to disconnect.
    using message_handler = std::function<bool(const std::string& text, std::string& reply)>;

    /// Borrows `state` for its life. `server` is a host name or address without scheme and port.
    rest_session(std::string server, std::uint32_t port, client_state& state);

    /// Fixes where messages go; `api` is "v2" or "v3". To be called once, before anything is sent.
    void set_urls(const std::string& api, const std::string& zorvin_uuid);
    [[nodiscard]] const std::string& message_url() const { return message_url_; }

    /// Sends the attach message and has the answer handled; true when attached, and a scan is
    /// requested then. Blocks for two POSTs and the handler at most.
    [[nodiscard]] bool connect(const std::string& attach, const message_handler& handle);

    /// Fetches messages and has each handled until the server has none; false when the session is
    /// lost. `between` is called after each reply, before the next message is fetched.
    [[nodiscard]] bool poll(const std::string& url, const message_handler& handle,
                            const std::function<void()>& between);

    /// Sends an unsolicited message, whose answer is ignored; nothing when shutting down. Any
    /// thread.
    void send(const std::string& text);

private:
    void log_sent(const std::string& text) const;
    [[nodiscard]] std::string server_and_port() const;

    const std::string server_;
    client_state& state_;
    curl_http::http_client http_;
    std::string attach_url_;
    std::string message_url_;
};

} // namespace csi_receiver
