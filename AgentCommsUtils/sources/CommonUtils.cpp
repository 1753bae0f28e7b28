#include "CommonUtils.h"

#include "Log.h"

#include <time.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <array>

namespace quorl {
namespace {

constexpr std::string_view asciiAlphanumeric =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";

void appendEscaped(std::string_view bytes, std::string& out) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        out += '%';
        out += digits[byte >> 4];
        out += digits[byte & 0x0f];
    }
}

bool isAlphanumeric(UChar32 character) {
    return (U_GET_GC_MASK(character) & (U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK)) != 0;
}

bool isBlank(char c) {
    return std::string_view(" \t\n\v\f\r").find(c) != std::string_view::npos;
}

}  // namespace

std::string getCurrentUTCDate(const Clock& clock) {
    static constexpr std::array days = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr std::array months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const time_t seconds =
        std::chrono::floor<std::chrono::seconds>(clock.now()).time_since_epoch().count();
    tm utc{};
    gmtime_r(&seconds, &utc);
    // Names from these tables and not from strftime, which would follow the machine's language.
    return fmt::format("{}, {:02} {} {:04} {:02}:{:02}:{:02} +0000",
                       days[static_cast<std::size_t>(utc.tm_wday)], utc.tm_mday,
                       months[static_cast<std::size_t>(utc.tm_mon)], utc.tm_year + 1900,
                       utc.tm_hour, utc.tm_min, utc.tm_sec);
}

std::int64_t getCurrentTimeInMillis(const Clock& clock) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(clock.now().time_since_epoch())
        .count();
}

std::optional<std::string> getExtensionFromFileName(std::string_view fileName) {
    const auto dot = fileName.rfind('.');
    if (dot == fileName.npos)
        return std::nullopt;
    return std::string(fileName.substr(dot + 1));
}

std::optional<std::string> parseValueFromResponse(std::string_view key,
                                                  const std::optional<std::string>& response) {
    if (!response)
        return std::nullopt;
    const std::string marker = std::string(key) + "=";
    const auto found = response->find(marker);
    if (found == std::string::npos)
        return "";
    std::string_view rest = std::string_view(*response).substr(found + marker.size());
    while (!rest.empty() && isBlank(rest.front()))
        rest.remove_prefix(1);
    return std::string(rest.substr(0, rest.find("||")));
}

std::string urlEncode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t start = at;
        UChar32 character = 0;
        U8_NEXT(text.data(), at, text.size(), character);
        const std::string_view bytes = text.substr(start, at - start);
        const bool plain =
            character >= 0 &&
            (isAlphanumeric(character) ||
             (character < 0x80 && std::string_view("-._~").find(bytes[0]) != bytes.npos));
        if (plain)
            out += bytes;
        else
            appendEscaped(bytes, out);
    }
    return out;
}

std::string encodeURLQuery(std::string_view text) {
    constexpr std::string_view allowedMarks = "!$&'()*+,-./:;=?@_~";
    std::string out;
    out.reserve(text.size());
    for (const char& c : text) {
        if (asciiAlphanumeric.find(c) != asciiAlphanumeric.npos ||
            allowedMarks.find(c) != allowedMarks.npos)
            out += c;
        else
            appendEscaped({&c, 1}, out);
    }
    return out;
}

// The parts in the order in which a URL has them.
// NOLINTNEXTLINE(bugprone-easily-swappable-parameters)
std::string constructServerURL(std::string_view server, std::string_view port,
                               std::string_view contextPath, std::string_view requestPath) {
    std::string url = fmt::format("https://{}:{}{}{}", server, port, contextPath, requestPath);
    logLine("constructServerURL : urlString  - {}", url);
    return url;
}

}  // namespace quorl
