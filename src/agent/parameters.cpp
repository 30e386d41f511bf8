#include "agent/parameters.h"

#include <algorithm>
#include <charconv>

#include "connection/storefolders.h"

namespace zel {

namespace {

std::string Decoded(std::string_view text) {
    std::string value;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned code = 0;
        const bool isCode =
            text[i] == '%' && i + 2 < text.size() &&
            std::from_chars(&text[i + 1], &text[i + 1] + 2, code, 16).ptr == &text[i + 1] + 2;
        value += isCode ? static_cast<char>(code) : text[i] == '+' ? ' ' : text[i];
        i += isCode ? 2 : 0;
    }
    return value;
}

}  // namespace

Parameters ParametersOf(std::string_view query) {
    Parameters parameters;
    while (!query.empty()) {
        const std::string_view pair = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(pair.size() + 1, query.size()));
        const std::size_t sign = std::min(pair.find('='), pair.size());
        if (!pair.empty())
            parameters.emplace_back(Decoded(pair.substr(0, sign)),
                                    Decoded(pair.substr(std::min(sign + 1, pair.size()))));
    }
    return parameters;
}

std::string Parameter(std::string_view query, std::string_view name) {
    for (auto& [one, value] : ParametersOf(query))
        if (one == name)
            return std::move(value);
    return "";
}

std::string TakeParameter(Parameters* parameters, std::string_view name) {
    std::string value;
    const auto isNamed = [&](const auto& one) { return one.first == name; };
    const auto first = std::find_if(parameters->begin(), parameters->end(), isNamed);
    if (first != parameters->end())
        value = std::move(first->second);
    std::erase_if(*parameters, isNamed);
    return value;
}

bool ReadCount(std::string_view text, std::uint64_t most, std::uint64_t* number) {
    if (text.empty())
        return true;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
    return error == std::errc() && end == text.data() + text.size() && *number <= most;
}

std::string DeedOf(const HttpHead& head, const std::string& deed) {
    constexpr std::size_t longest = 2048;
    const std::string who =
        head.peer.isKnown ? "uid " + std::to_string(head.peer.uid) : "the port's reader";
    return who + " " + Printable(deed.substr(0, longest)) + (deed.size() > longest ? "..." : "");
}

}  // namespace zel
