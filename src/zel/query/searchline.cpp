#include "zel/query/searchline.h"

#include <algorithm>

#include "records/columns.h"
#include "records/recordwriter.h"
#include "zel/query/searchwords.h"
#include "zel/query/textconditions.h"
#include "zel/terminal/textfit.h"

// A line is taken apart as a shell would, and each part is asked alone, by the routine that reads
// the parameters of a request. So the first part that can't be asked is known, and with it the
// place.

namespace zel {

namespace {

// The words of a complaint, and the byte of the value where it points (Complaint).
struct Told {
    std::string what;
    std::size_t at = 0;
};
Told ToldBy(const std::string& problem, const std::string& value) {
    constexpr std::size_t indent = 2;
    Told told{problem.substr(0, problem.find('\n'))};
    const std::size_t caret = problem.rfind('^');
    const std::size_t line = problem.rfind('\n');
    // Of other texts columns are no bytes, so that their begin is pointed at.
    const bool isAscii =
        std::all_of(value.begin(), value.end(), [](char c) { return c >= ' ' && c <= '~'; });
    if (isAscii && caret != problem.npos && line != problem.npos && caret > line + indent)
        told.at = std::min(caret - line - 1 - indent, value.size());
    return told;
}

bool IsOfPage(const SearchLine::Part& part) {
    const SearchFlag* const flag = FindSearchFlag(part.name);
    return flag != nullptr && flag->kind == SearchFlag::ofPage;
}

std::pair<std::string, std::string> ParameterOf(const SearchLine::Part& part) {
    return {part.name, part.value};
}

void AskParts(SearchLine& line, ReadParameters read) {
    std::vector<std::pair<std::string, std::string>> all;
    ParameterQuestion question;
    for (const SearchLine::Part& part : line.parts) {
        if (IsOfPage(part))
            continue;
        all.push_back(ParameterOf(part));
        std::string problem;
        if (read({ParameterOf(part)}, &question, &problem))
            continue;
        const Told told = ToldBy(problem, part.value);
        line.problem = told.what;
        line.problemAt = part.begin + told.at;
        return;
    }
    std::string problem;
    if (all.size() > 1 && !read(all, &question, &problem)) {
        line.problem = problem.substr(0, problem.find('\n'));
        line.problemAt = line.parts.back().at;
    }
}

// Words as they were typed, one behind the other.
void AddFreeWord(SearchLine& line, const SearchWord& word, bool joins) {
    if (joins)
        line.parts.back().value.append(" ").append(word.text);
    else
        line.parts.push_back({"grep", word.text, word.at, word.begin});
}

std::string FlagOf(const std::string& name) {
    std::string flag = "--" + name;
    std::replace(flag.begin(), flag.end(), '_', '-');
    return flag;
}

std::string Written(const SearchLine::Part& part) {
    if (part.value.empty())
        return FlagOf(part.name);
    const char* const between = part.value.starts_with('-') ? "=" : " ";
    return FlagOf(part.name) + between + ShellQuoted(part.value);
}

// False where the line can't be gone on with.
bool TakeFlag(const std::vector<SearchWord>& words, std::size_t* next, SearchLine& line) {
    const SearchWord& word = words[*next];
    const std::size_t sign = word.text.find('=');
    const std::string_view name = std::string_view(word.text).substr(0, sign);
    const SearchFlag* const flag =
        name.starts_with("--") ? FindSearchFlag(name.substr(2)) : nullptr;
    const auto refuse = [&](std::string why) {
        line.problem = std::move(why);
        line.problemAt = word.at;
        return false;
    };
    if (flag == nullptr)
        return refuse(UnknownName("flag", name, SearchFlagNames()));
    SearchLine::Part part{std::string(flag->name), "", word.at, word.begin};
    if (flag->kind == SearchFlag::alone) {
        line.parts.push_back(std::move(part));
        return true;
    }
    if (sign != word.text.npos) {
        part.value = word.text.substr(sign + 1);
        part.begin = word.begin + sign + 1;
    } else if (*next + 1 < words.size()) {
        const SearchWord& value = words[++*next];
        part.value = value.text;
        part.at = value.at;
        part.begin = value.begin;
    }
    if (part.value.empty())
        return refuse(std::string(name) + ": a value is expected");
    line.parts.push_back(std::move(part));
    return true;
}

}  // namespace

SearchLine ReadSearchLine(std::string_view text, ReadParameters read) {
    SearchLine line;
    bool isOpen = false;
    std::vector<SearchWord> words = SearchWordsOf(text, &isOpen);
    if (isOpen) {
        line.problem = "a quote has no end";
        line.problemAt = words.back().at;
        return line;
    }
    // A command that was copied.
    const bool isCommand = words.size() >= 2 && words[0].text == "zel" && words[1].text == "query";
    bool wasFree = false;
    for (std::size_t next = isCommand ? 2 : 0; next < words.size(); ++next) {
        const bool isFree =
            !words[next].text.starts_with('-') || words[next].begin != words[next].at;
        if (isFree)
            AddFreeWord(line, words[next], wasFree);
        else if (!TakeFlag(words, &next, line))
            return line;
        wasFree = isFree;
    }
    AskParts(line, read);
    return line;
}

std::string CommandOf(const SearchLine& line) {
    std::string command = "zel query", rest;
    for (const SearchLine::Part& part : line.parts)
        (IsOfPage(part) ? rest : command).append(" ").append(Written(part));
    return rest.empty() ? command : command + "  #" + rest;
}

namespace {

// What keys decide of conditions on texts, as a sub-query.
std::string NarrowingOfAllBut(const SearchLine& line, const SearchLine::Part* without) {
    QueryOptions options;
    for (const SearchLine::Part& part : line.parts)
        if (&part != without && part.name == "where")
            options.wheres.push_back(part.value);
        else if (&part != without && part.name == "computer")
            options.computers.push_back(part.value);
    TextConditions conditions;
    std::string problem;
    return ReadTextConditions(options, &conditions, &problem) ? SubQueryOf(NarrowingOf(conditions))
                                                              : "";
}

}  // namespace

SearchDecided DecidedOf(const SearchLine& line) {
    SearchDecided decided;
    for (const SearchLine::Part& part : line.parts) {
        const SearchFlag* const flag = FindSearchFlag(part.name);
        const std::string text = Written(part);
        const bool isOfKey = flag != nullptr && flag->isOfKey;
        if (flag == nullptr || !isOfKey)
            decided.byText.push_back(text);
        if (isOfKey || NarrowingOfAllBut(line, &part) != NarrowingOfAllBut(line, nullptr))
            decided.byKey.push_back(text);
    }
    return decided;
}

namespace {

void WriteList(RecordWriter& writer, const char* key, const std::vector<std::string>& texts) {
    writer.Key(key).BeginArray();
    for (const std::string& text : texts)
        writer.Text(text);
    writer.EndArray();
}

void WriteParts(RecordWriter& writer, const SearchLine& line) {
    writer.Key("parameters").BeginArray();
    for (const SearchLine::Part& part : line.parts)
        writer.BeginArray().Text(part.name).Text(part.value).EndArray();
    writer.EndArray().Key("command").Text(CommandOf(line));
    const SearchDecided decided = DecidedOf(line);
    writer.Key("decided").BeginObject();
    WriteList(writer, "key", decided.byKey);
    WriteList(writer, "text", decided.byText);
    writer.EndObject();
}

}  // namespace

bool AnswerSearchLine(const std::string& text, std::optional<std::size_t> at, ReadParameters read,
                      const SeenValues& seen, std::string* json) {
    const SearchLine line = ReadSearchLine(text, read);
    RecordWriter writer(json);
    writer.BeginObject();
    if (!line.problem.empty())
        writer.Key("error")
            .Text(line.problem)
            .Key("at")
            .Number(std::min(line.problemAt, text.size()));
    else
        WriteParts(writer, line);
    if (at) {
        writer.Key("completions").BeginArray();
        for (const Completion& one : CompletionsAt(text, std::min(*at, text.size()), seen)) {
            writer.BeginObject().Key("from").Number(one.from).Key("text").Text(one.text);
            writer.Key("hint").Text(one.hint).EndObject();
        }
        writer.EndArray();
    }
    writer.EndObject();
    *json += '\n';
    return line.problem.empty() || at.has_value();
}

}  // namespace zel
