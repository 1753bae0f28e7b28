// The least that a sign-in's helper must do before it can ask: read the configuration and the
// record of the user that it is given. It then says so with a byte on standard output. Its
// libraries are the helper's.
#include "ConfigParser.h"
#include "LocalRecord.h"
#include "OfflineDataHandler.h"

#include <unistd.h>

int main(int argc, char** argv) {
    using namespace quorl;
    if (argc != 2)
        return 2;
    getProductConfig(getConfigFilePath());
    const auto now = std::chrono::floor<std::chrono::seconds>(systemClock().now());
    const bool owed =
        LocalRecord(argv[1], OfflineDataHandler::getOfflineData(argv[1]), systemClock())
            .owed(now)
            .has_value();
    return owed && write(STDOUT_FILENO, "!", 1) == 1 ? 0 : 1;
}
