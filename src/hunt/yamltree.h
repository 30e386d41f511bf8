#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hunt/rule.h"

namespace zel {

// A node of a YAML document. Where the document has an alias both places share one node.
struct YamlNode {
    enum class Kind : std::uint8_t { null, text, list, map };
    using Entry = std::pair<const YamlNode*, const YamlNode*>;

    Kind kind = Kind::null;
    bool isQuoted = false;  // a text that is neither number nor bool, whatever it looks like
    std::string text;       // UTF-8, as it is written: 0x10 stays that
    std::vector<const YamlNode*> items;
    std::vector<Entry> entries;  // in the order of the document; keys are texts, each stands once
    int line = 0, column = 0;    // from 1

    // Of a map; null where it has no such key.
    const YamlNode* Find(std::string_view key) const noexcept;
};

// Calls for each document of the text, whose nodes are good until the call returns. False, with the
// place and the reason, where the text is no YAML from there on or goes beyond what is read: 16 MiB
// a text, 64 KiB a line, 500,000 nodes and 32 levels a document. Merge keys and tags of other types
// are refused, too. Takes time and memory in proportion to the text.
bool ReadYaml(std::string_view yaml, const std::function<void(const YamlNode&)>& document,
              RuleProblem* problem);

// For readers of nodes: says what is wrong with one, and is false.
bool RefuseAt(const YamlNode& node, std::string what, RuleProblem* problem);
// The text of a node, or the texts of a list of such; null is none. False for anything else: `name`
// says what the node is.
bool TextsOf(const YamlNode& node, std::string_view name, std::vector<std::string>* texts,
             RuleProblem* problem);
bool TextOf(const YamlNode& node, std::string_view name, std::string* text, RuleProblem* problem);

}  // namespace zel
