#include "fleet/hostidentifier.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "common/filesystem.h"

// As is customary for identifiers of one application: a keyed hash of a text of the application's
// own, with the machine's identifier as the key, marked as a random identifier of the usual form.

namespace zel::fleet {

namespace {

constexpr const wchar_t* machineIdFile = L"/etc/machine-id";
// Never to change: each host would become another one.
constexpr std::array<unsigned char, 16> application = {
    0x6b, 0x1f, 0x0e, 0x93, 0x27, 0x5c, 0x4d, 0x8a, 0xb2, 0x41, 0xe7, 0x0d, 0x58, 0xc9, 0x3a, 0x76};
constexpr std::size_t identifierBytes = 16;

int DigitOf(char c) {
    return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

}  // namespace

std::string HostIdentifierOf(std::string_view machineId) {
    std::array<unsigned char, identifierBytes> machine{};
    while (machineId.ends_with('\n') || machineId.ends_with('\r'))
        machineId.remove_suffix(1);
    if (machineId.size() != 2 * identifierBytes)
        return "";
    for (std::size_t i = 0; i < machine.size(); ++i) {
        const int high = DigitOf(machineId[2 * i]), low = DigitOf(machineId[2 * i + 1]);
        if (high < 0 || low < 0)
            return "";
        machine[i] = static_cast<unsigned char>(high * 16 + low);
    }
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
    unsigned length = 0;
    if (HMAC(EVP_sha256(), machine.data(), static_cast<int>(machine.size()), application.data(),
             application.size(), hash.data(), &length) == nullptr)
        return "";
    hash[6] = static_cast<unsigned char>((hash[6] & 0x0F) | 0x40);
    hash[8] = static_cast<unsigned char>((hash[8] & 0x3F) | 0x80);
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < identifierBytes; ++i)
        text.append(1, digits[hash[i] >> 4]).append(1, digits[hash[i] & 15]);
    return text;
}

std::string HostIdentifier(std::string* problem) {
    std::string text;
    const bool isRead = Succeeded(wm::ReadWholeFile(machineIdFile, &text));
    std::string identifier = isRead ? HostIdentifierOf(text) : "";
    if (identifier.empty())
        *problem = "this machine has no identifier in /etc/machine-id: name the host";
    return identifier;
}

bool IsHostName(std::string_view text) noexcept {
    constexpr std::size_t longest = 255;
    return !text.empty() && text.size() <= longest &&
           std::none_of(text.begin(), text.end(), [](char c) {
               return static_cast<unsigned char>(c) < ' ' || c == 0x7F || c == '\'' || c == '"';
           });
}

// FNV-1a, whose low bits alone would follow the last character.
double TurnOf(std::string_view host) noexcept {
    std::uint64_t hash = 0xCBF29CE484222325;
    for (const char c : host)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    hash ^= hash >> 32;
    constexpr std::uint64_t parts = 1U << 20;
    return static_cast<double>(hash % parts) / static_cast<double>(parts);
}

}  // namespace zel::fleet
