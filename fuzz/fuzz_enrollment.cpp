// A server's reply to the sync: what is taken of it is a record that the offline side can use and
// the store can hold, that owes a factor, and that no empty key opens.
#include "BoundedJson.h"
#include "EnrollmentReply.h"
#include "OfflineMethods.h"
#include "StoreJSON.h"

#include <cstdlib>

namespace {

constexpr const char* accessKey =
    "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";

class FixedClock final : public quorl::Clock {
  public:
    std::chrono::system_clock::time_point now() const override {
        return std::chrono::system_clock::time_point(std::chrono::seconds(59));
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quorl;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    // As deep as the HTTP client lets replies be.
    const auto parsed = parseJSON(text, {.bytes = std::size_t{1} << 20, .depth = 512});
    if (!parsed)
        return 0;
    const Value& reply = *parsed;
    readEnrolledUsers(reply);
    const Value* offlineData = member(reply, "OFFLINE_MFA_DATA");
    const auto enrollment = readEnrollment(offlineData ? *offlineData : reply);
    if (!enrollment)
        return 0;
    const auto parts = RecordParts::of(enrollment->record);
    const auto record = parts ? OfflineRecord::read(*parts) : std::nullopt;
    if (!record || record->noOfFactors < 1 || !fitsStore(enrollment->record))
        std::abort();
    const FixedClock clock;
    const auto methods = offlineMethods(*record, accessKey, clock);
    if (!methods)
        return 0;
    // The empty key's codes at second 59.
    for (const auto& [id, authenticator] : methods->authenticators)
        for (const char* code : {"812658", "0812658", "30812658", "230812658"})
            if (authenticator.matchedStep(code))
                std::abort();
    return 0;
}
