#include "TimeLimit.h"

#include <sys/time.h>

#include <algorithm>
#include <ctime>

namespace quorl::pam {

using namespace std::chrono_literals;

Milliseconds sinceBoot() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return std::chrono::duration_cast<Milliseconds>(std::chrono::seconds(now.tv_sec) +
                                                    std::chrono::nanoseconds(now.tv_nsec));
}

Milliseconds timeLimit(std::chrono::seconds timeout, std::string_view service) {
    Milliseconds limit = timeout;
    // LoginGraceTime is 120 s, of which the password has had its part.
    if (service == "sshd")
        limit = std::min<Milliseconds>(limit, 100s);
    itimerval alarm{};
    getitimer(ITIMER_REAL, &alarm);
    const Milliseconds left(alarm.it_value.tv_sec * 1000LL + alarm.it_value.tv_usec / 1000);
    // login ends the process at its alarm, in the middle of a prompt: our text is to come first.
    if (left > 0ms)
        limit = std::min<Milliseconds>(limit, left - 5s);
    return std::max<Milliseconds>(limit, 0ms);
}

}  // namespace quorl::pam
