#include "LineReader.h"

#include <cerrno>
#include <climits>
#include <cstring>

namespace quorl::pam {

LineReader::LineReader(const char* path) : file_(open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY)) {}

bool LineReader::next(std::string_view& line) {
    for (;;) {
        const char* start = buffer_.data() + begin_;
        const void* feed = std::memchr(start, '\n', end_ - begin_);
        if (feed || (atEnd_ && begin_ < end_)) {
            const char* stop = feed ? static_cast<const char*>(feed) : buffer_.data() + end_;
            line = {start, static_cast<std::size_t>(stop - start)};
            begin_ += line.size() + (feed ? 1 : 0);
            if (!overlong_)
                return true;
            overlong_ = false;
        } else if (atEnd_ || !fill()) {
            return false;
        }
    }
}

bool LineReader::fill() {
    if (!file_)
        return false;
    if (begin_ == 0 && end_ == buffer_.size()) {
        overlong_ = true;
        end_ = 0;
    }
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
    ssize_t got;
    do
        got = read(file_.get(), buffer_.data() + end_, buffer_.size() - end_);
    while (got < 0 && errno == EINTR);
    if (got < 0)
        return false;
    atEnd_ = got == 0;
    end_ += static_cast<std::size_t>(got);
    return true;
}

}  // namespace quorl::pam
