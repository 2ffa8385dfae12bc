/// An open file descriptor that closes itself.
#pragma once

namespace csi_receiver {

/// Owns one descriptor, or none (-1). Belongs to one thread at a time.
class descriptor {
public:
    descriptor() = default;
    explicit descriptor(int fd)
        : fd_(fd) {}
    ~descriptor() { reset(); }
    descriptor(descriptor&& other) noexcept
        : fd_(other.release()) {}
    descriptor& operator=(descriptor&& other) noexcept;
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] bool is_open() const { return fd_ >= 0; }

    /// Closes the descriptor. errno keeps its value.
    void reset();

    /// Gives the descriptor up: the caller closes it.
    [[nodiscard]] int release();

private:
    int fd_ = -1;
};

} // namespace csi_receiver
