/// A TCP client that sends and receives bytes as they are.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "peers/sockets.h"
#include "platform/socket.h"

inline peers::descriptor connect_to(std::uint16_t port) {
    peers::descriptor client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_TRUE(csi_receiver::connect_address(client.get(), "127.0.0.1", port));
    return client;
}

inline void send_all(const peers::descriptor& client, const std::string& text) {
    // An answer may come, and the connection be closed, before all was sent.
    static_cast<void>(send(client.get(), text.data(), text.size(), MSG_NOSIGNAL));
}

/// All that the server sends until it closes the connection.
inline std::string read_all(const peers::descriptor& client) {
    std::string result;
    std::array<char, 4096> buffer{};
    while (true) {
        const ssize_t count = recv(client.get(), buffer.data(), buffer.size(), 0);
        if (count <= 0) {
            return result;
        }
        result.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

/// What the server answers to the text, and to the end of what the client sends.
inline std::string exchange(std::uint16_t port, const std::string& text) {
    const peers::descriptor client = connect_to(port);
    send_all(client, text);
    shutdown(client.get(), SHUT_WR);
    return read_all(client);
}
