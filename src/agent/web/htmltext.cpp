#include "agent/web/htmltext.h"

#include <simdjson.h>

#include <cstdio>

#include "records/recordwriter.h"

namespace zel {

namespace {

// The code of a character of three bytes that can't be seen or turns the direction, or 0.
unsigned UnseenAt(std::string_view text) {
    if (text.size() < 3 || static_cast<unsigned char>(text[0]) != 0xE2)
        return 0;
    const unsigned second = static_cast<unsigned char>(text[1]) & 0x3FU;
    const unsigned third = static_cast<unsigned char>(text[2]) & 0x3FU;
    const unsigned code = 0x2000U | second << 6 | third;
    const bool isUnseen = (code >= 0x200B && code <= 0x200F) ||
                          (code >= 0x2028 && code <= 0x202E) || (code >= 0x2060 && code <= 0x2069);
    return isUnseen ? code : 0;
}

void AppendCharacter(char character, std::string* out) {
    constexpr unsigned firstPicture = 0x2400;  // from there on the signs of the controls
    constexpr unsigned deletedPicture = 0x2421;
    const auto byte = static_cast<unsigned char>(character);
    if (character == '&')
        *out += "&amp;";
    else if (character == '<')
        *out += "&lt;";
    else if (character == '>')
        *out += "&gt;";
    else if (character == '"')
        *out += "&quot;";
    else if (character == '\'')
        *out += "&#39;";
    else if (byte == 0x7F)
        *out += "&#" + std::to_string(deletedPicture) + ";";
    else if (byte < ' ' && character != '\n' && character != '\t')
        *out += "&#" + std::to_string(firstPicture + byte) + ";";
    else
        *out += character;
}

using Element = simdjson::dom::element;

void AppendLines(const Element& element, const std::string& indent, std::string* out);

// A list or an object: its brackets, and each of its values on a line of its own.
template <typename List, typename Append>
void AppendList(const List& list, std::string_view brackets, const std::string& indent,
                std::string* out, const Append& append) {
    bool isEmpty = true;
    *out += brackets.front();
    for (const auto& item : list) {
        out->append(isEmpty ? "\n" : ",\n").append(indent).append("  ");
        append(item);
        isEmpty = false;
    }
    if (!isEmpty)
        out->append("\n").append(indent);
    *out += brackets.back();
}

// How deep it goes is bounded by the reader.
void AppendLines(const Element& element, const std::string& indent, std::string* out) {
    simdjson::dom::object object;
    simdjson::dom::array array;
    if (element.get(object) == simdjson::SUCCESS)
        AppendList(object, "{}", indent, out, [&](const simdjson::dom::key_value_pair& member) {
            AppendJsonString(member.key, out);
            *out += ": ";
            AppendLines(member.value, indent + "  ", out);
        });
    else if (element.get(array) == simdjson::SUCCESS)
        AppendList(array, "[]", indent, out,
                   [&](const Element& item) { AppendLines(item, indent + "  ", out); });
    else
        *out += simdjson::to_string(element);
}

}  // namespace

std::string HtmlText(std::string_view text) {
    std::string html;
    html.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const unsigned unseen = UnseenAt(text.substr(i));
        if (unseen == 0) {
            AppendCharacter(text[i], &html);
            continue;
        }
        char name[16] = "";
        std::snprintf(name, sizeof(name), "[U+%04X]", unseen);
        html += name;
        i += 2;
    }
    return html;
}

std::string HtmlOfJson(std::string_view json) {
    simdjson::dom::parser parser;
    const simdjson::padded_string padded(json);
    Element element;
    if (parser.parse(padded).get(element) != simdjson::SUCCESS)
        return HtmlText(json);
    std::string lines;
    AppendLines(element, "", &lines);
    return HtmlText(lines);
}

}  // namespace zel
