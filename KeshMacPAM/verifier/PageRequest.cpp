#include "PageRequest.h"

#include "CommonUtils.h"
#include "ConfigParser.h"
#include "CryptoUtils.h"
#include "Log.h"
#include "MachineDomain.h"
#include "ServerCommunicator.h"

#include <sys/random.h>

#include <array>

namespace quorl {
namespace {

std::optional<std::string> newNonce() {
    std::array<std::uint8_t, 32> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        return std::nullopt;
    return convertDataBytesToHex(bytes);
}

// In a time that tells nothing of where the texts differ.
bool equal(std::string_view one, std::string_view other) {
    unsigned difference = one.size() == other.size() ? 0 : 1;
    for (std::size_t i = 0; i < one.size() && i < other.size(); ++i)
        difference |= static_cast<unsigned char>(one[i]) ^ static_cast<unsigned char>(other[i]);
    return difference == 0;
}

}  // namespace

std::optional<PageRequest> makePageRequest(const Person& person, const std::string& service,
                                           const std::string& page) {
    const Value& config = getProductConfig(getConfigFilePath());
    const ServerCommunicator communicator(systemClock());
    const auto nonce = newNonce();
    // The signature covers the path alone.
    const auto headers = communicator.getAuthRequestHeaders(
        configText(config, "ACCESS_KEY"), configText(config, "AGENT_ID"),
        page.substr(0, page.find_first_of("?#")), "POST");
    if (!nonce || !headers)
        return std::nullopt;
    const std::string form = "USER_NAME=" + urlEncode(person.name) +
                             "&DOMAIN_NAME=" + urlEncode(person.domain) +
                             "&MACHINE_NAME=" + urlEncode(localizedHostName()) +
                             "&SERVICE=" + urlEncode(service) + "&NONCE=" + *nonce;
    return PageRequest{
        {{"MFA_REQUEST_URL", page}, {"POST_DATA", form}, {"REQUEST_HEADERS", *headers}}, *nonce};
}

bool provesSuccess(const Value& result, const Person& person, const std::string& nonce,
                   verifier::KeyRule rule) {
    const auto key = stringValue(result, "KEY");
    if (stringValue(result, "MFA_AUTH_RESULT") != "SUCCESS" || !key)
        return false;
    if (rule == verifier::KeyRule::Present)
        return true;
    const std::string accessKey = configText(getProductConfig(getConfigFilePath()), "ACCESS_KEY");
    return !accessKey.empty() &&
           equal(*key, convertDataBytesToHex(getHMACSHA256Hash(
                           accessKey, nonce + "\n" + person.name + "\n" + person.domain)));
}

}  // namespace quorl
