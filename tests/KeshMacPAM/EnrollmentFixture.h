#pragma once

#include "ConfigParser.h"
#include "EnrollmentHandler.h"
#include "Log.h"
#include "OfflineDataHandler.h"
#include "StoreKey.h"
#include "TestClock.h"
#include "TestSandbox.h"

#include <fmt/format.h>

namespace quorl::test {

/// A store with its key, and a configuration with an agent identity. The log is the agent's own
/// file, onto which a handler reopens standard error.
class EnrollmentTest : public testing::Test {
  protected:
    static constexpr const char* accessKey =
        "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";

    EnrollmentTest() {
        configure("OFFLINE_MFA", "True");
        configure("AGENT_ID", "1001");
        configure("ACCESS_KEY", accessKey);
        OfflineDataHandler::setDataEncryptionKey();
    }

    static void configure(const char* key, const std::string& value) {
        getProductConfig(getConfigFilePath())[key] = value;
    }
    static void store(const std::string& user, const Value& record) {
        for (const auto& [key, value] : record.items())
            OfflineDataHandler::setOfflineData(user, key, value);
    }
    static Value stored(const std::string& user) {
        return OfflineDataHandler::getOfflineData(user).value_or(Value());
    }
    /// What was logged since it was asked last.
    std::string newLines() {
        tellRepeatedLines();
        const std::string all = TestSandbox::read(sandbox.support() / "VantorixClient.log");
        return all.substr(std::exchange(logged_, all.size()));
    }
    static std::size_t count(const std::string& text, const std::string& part) {
        return occurrences(text, part);
    }

  private:
    const LogCapture capture_;  // gives standard error back

  protected:
    const TestSandbox sandbox;

  private:
    std::size_t logged_ = 0;
};

}  // namespace quorl::test
