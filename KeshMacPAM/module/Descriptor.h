#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace quorl::pam {

/// Owns one file descriptor.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other)
            reset(std::exchange(other.fd_, -1));
        return *this;
    }
    ~Descriptor() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    void reset(int fd = -1) {
        if (fd_ >= 0)
            close(fd_);
        fd_ = fd;
    }

    /// Moves it to 3 or above. In a host with closed standard descriptors it could stand there, and
    /// whatever the host then prints would go into it.
    void leaveStandard() {
        if (fd_ >= 0 && fd_ <= STDERR_FILENO)
            reset(fcntl(fd_, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    }

  private:
    int fd_ = -1;
};

}  // namespace quorl::pam
