#include "fleet/fleetaddress.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>

#include "common/filesystem.h"
#include "common/textbridge.h"

namespace zel::fleet {

namespace {

constexpr std::string_view form = "http[s]://[USER@]HOST[:PORT][/DATABASE]";

bool IsPort(std::string_view text) {
    unsigned port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc() && end == text.data() + text.size() && port > 0 && port <= 65535;
}

// What may stand in a URL as it is, and in a header.
bool IsPlain(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return c > ' ' && c < 0x7F && c != '"' && c != '\\'; });
}

// Where the port begins, behind an address in brackets.
std::size_t PortColon(std::string_view host) {
    const std::size_t bracket = host.rfind(']');
    return host.find(':', bracket == host.npos ? 0 : bracket);
}

bool Refuse(std::string_view why, std::string* problem) {
    problem->assign("the fleet's address: ").append(why).append("; it is ").append(form);
    return false;
}

}  // namespace

bool ParseFleetAddress(std::string_view text, FleetAddress* address, std::string* problem) {
    const std::string_view scheme = text.starts_with("https://")  ? "https://"
                                    : text.starts_with("http://") ? "http://"
                                                                  : "";
    if (scheme.empty())
        return Refuse("begins neither with http:// nor with https://", problem);
    if (!IsPlain(text) || text.find_first_of("?#") != text.npos)
        return Refuse("has a character that can't stand in it", problem);
    std::string_view rest = text.substr(scheme.size());
    const std::size_t slash = std::min(rest.find('/'), rest.size());
    std::string_view host = rest.substr(0, slash);
    const std::string_view database = rest.substr(std::min(slash + 1, rest.size()));
    if (database.find_first_of("/`%") != database.npos)
        return Refuse("names no database behind its host", problem);
    const std::size_t at = host.rfind('@');
    const std::string_view user = at == host.npos ? "" : host.substr(0, at);
    if (user.find(':') != user.npos)
        return Refuse("a password does not belong in it, but in a file or in ZEL_FLEET_PASSWORD",
                      problem);
    host.remove_prefix(at == host.npos ? 0 : at + 1);
    const std::size_t colon = PortColon(host);
    const std::string_view name = host.substr(0, colon);
    if (name.empty())
        return Refuse("names no host", problem);
    if (colon != host.npos && !IsPort(host.substr(colon + 1)))
        return Refuse("its port is none", problem);
    const std::string_view port = colon != host.npos     ? host.substr(colon)
                                  : scheme == "https://" ? ":8443"
                                                         : ":8123";
    address->url.assign(scheme).append(name).append(port);
    address->user = user;
    address->database = database;
    address->isLocal = name == "localhost" || name == "[::1]" || name.starts_with("127.");
    return true;
}

bool ReadFleetAddress(std::string_view text, const std::string& passwordFile, FleetAddress* address,
                      std::string* problem) {
    if (!ParseFleetAddress(text, address, problem))
        return false;
    if (passwordFile.empty()) {
        const char* const value = std::getenv("ZEL_FLEET_PASSWORD");
        address->password = value != nullptr ? value : "";
    } else {
        std::wstring name;
        std::string bytes;
        if (!wm::ToWide(passwordFile, name) || Failed(wm::ReadWholeFile(name, &bytes))) {
            *problem = passwordFile + ": the fleet's password can't be read";
            return false;
        }
        address->password = bytes.substr(0, bytes.find_first_of("\r\n"));
    }
    const bool isGood =
        std::none_of(address->password.begin(), address->password.end(),
                     [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; });
    if (!isGood)
        *problem = "the fleet's password has a control character";
    return isGood;
}

}  // namespace zel::fleet
