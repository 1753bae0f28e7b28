#pragma once

#include "AtomicFile.h"
#include "ConfigParser.h"
#include "OfflineDataHandler.h"
#include "StoreKey.h"
#include "Subprocess.h"

#include <sys/stat.h>

namespace quorl::test {

/// A sandbox whose configuration holds an access key, with the store's two paths.
class StoreTest : public testing::Test {
  protected:
    StoreTest() { setAccessKey("an access key"); }

    static void setAccessKey(const std::string& key) {
        getProductConfig(getConfigFilePath())["ACCESS_KEY"] = key;
    }
    /// The text as the data file, encrypted as it should be.
    void writeEncrypted(const std::string& text) const {
        const auto cipher = OfflineDataHandler::encryptUsingDEK(asBytes(text));
        ASSERT_TRUE(cipher);
        TestSandbox::write(dataFile_, toString(*cipher));
    }

    const TestSandbox sandbox_;
    const std::filesystem::path dataFile_ = sandbox_.support() / "offline-data.json";
    const std::filesystem::path keyFile_ = sandbox_.support() / "dekey.key";
    const LogCapture log_;
};

}  // namespace quorl::test
