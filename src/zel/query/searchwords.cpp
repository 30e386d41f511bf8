#include "zel/query/searchwords.h"

#include <algorithm>

namespace zel {

namespace {

using Flag = SearchFlag;

constexpr Flag flags[] = {
    {"object", Flag::object, true, "object", "kind of the target"},
    {"action", Flag::action, true, "action", "what happened"},
    {"where", Flag::where, false, "", "COLUMN OP VALUE, such as user = alice"},
    {"since", Flag::time, true, "", "first time"},
    {"until", Flag::time, true, "", "last time"},
    {"day", Flag::time, true, "", "that day"},
    {"actor_path", Flag::text, true, "actor_path", "the acting program; * and ? stand for any"},
    {"target_path", Flag::text, true, "target_path", "the target; * and ? stand for any"},
    {"pattern", Flag::text, true, "", "regular expression for the target's whole path"},
    {"hash", Flag::text, true, "", "SHA-2 of the actor or of the target"},
    {"ip", Flag::text, true, "dst_ip", "either address of a connection"},
    {"correlation", Flag::text, true, "", "what events of one cause share"},
    {"type_id", Flag::text, true, "", "number of the event type"},
    {"actor_uid", Flag::text, true, "", "identifier of the acting process"},
    {"no_live_enriched", Flag::alone, true, "", "leave out events with a live enrichment"},
    {"cmd_line", Flag::text, false, "", "part of a command line"},
    {"user", Flag::text, false, "user", "with or without a domain"},
    {"computer", Flag::text, false, "computer", "machine that it happened on"},
    {"pid", Flag::text, false, "", "number of the acting process or of the target"},
    {"port", Flag::text, false, "", "either port of a connection"},
    {"grep", Flag::text, false, "", "text anywhere in the event"},
    {"tz", Flag::zone, true, "", "zone of the times that are typed"},
    {"rule", Flag::ofPage, false, "rule", "events that a rule fits"},
    {"without_rule", Flag::ofPage, false, "rule", "events that it does not fit"},
    {"level", Flag::ofPage, false, "", "of the highest rule that fits"},
};

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

}  // namespace

std::vector<SearchWord> SearchWordsOf(std::string_view line, bool* isOpen) {
    std::vector<SearchWord> words;
    char quote = '\0';
    bool isInside = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote == '\0' && IsBlank(c)) {
            isInside = false;
            continue;
        }
        if (!isInside)
            words.push_back({"", i, i + (c == '\'' || c == '"' ? 1 : 0), i});
        isInside = true;
        const char next = i + 1 < line.size() ? line[i + 1] : '\0';
        const bool isEscape =
            c == '\\' &&
            (quote == '"' ? next == '"' : quote == '\0' && (next == '\'' || next == '"'));
        if (isEscape)
            words.back().text += line[++i];
        else if (quote == '\0' ? c == '\'' || c == '"' : c == quote)
            quote = quote == '\0' ? c : '\0';
        else
            words.back().text += c;
        words.back().end = i + 1;
    }
    *isOpen = quote != '\0';
    return words;
}

std::string ShellQuoted(const std::string& text) {
    const auto isSafe = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string_view("_-.,:/@%+").find(c) != std::string_view::npos;
    };
    if (!text.empty() && std::all_of(text.begin(), text.end(), isSafe))
        return text;
    std::string quoted = "'";
    for (const char c : text)
        c == '\'' ? quoted.append("'\\''") : quoted.append(1, c);
    return quoted + "'";
}

const SearchFlag* FindSearchFlag(std::string_view name) {
    std::string parameter(name);
    std::replace(parameter.begin(), parameter.end(), '-', '_');
    const auto* const found =
        std::find_if(std::begin(flags), std::end(flags),
                     [&](const Flag& flag) { return flag.name == parameter; });
    return found != std::end(flags) ? found : nullptr;
}

std::vector<std::string_view> SearchFlagNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> made;
        for (const Flag& flag : flags) {
            made.push_back("--" + std::string(flag.name));
            std::replace(made.back().begin(), made.back().end(), '_', '-');
        }
        return made;
    }();
    return {names.begin(), names.end()};
}

}  // namespace zel
