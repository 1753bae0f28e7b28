#pragma once

#include <unistd.h>

#include <memory>
#include <utility>

namespace quorl {

/// Deleter that calls a C library's own free function.
template <auto Free>
struct FreeWith {
    void operator()(auto* handle) const noexcept { Free(handle); }
};

/// One line per C handle: `using CurlEasy = Handle<CURL, curl_easy_cleanup>;`
template <class T, auto Free>
using Handle = std::unique_ptr<T, FreeWith<Free>>;

/// An owned file descriptor; closed when it goes out of scope. -1 is none.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other)
            reset(std::exchange(other.fd_, -1));
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = fd;
    }

  private:
    int fd_ = -1;
};

}  // namespace quorl
