#include "hunt/yamltree.h"

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/mark.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <deque>
#include <map>
#include <set>
#include <sstream>

#include "common/textbridge.h"

// The library's own tree is not used: it has no bounds, hides repeated keys and forgets where an
// alias stood. Its parser calls a TreeBuilder instead, which ends the parsing with an exception as
// soon as a bound is met; that exception does not leave this file. Of a stray comma the library
// makes empty documents without end, all of which begin there. The library itself allows 500
// levels, and since a flow map may turn out to be a key it scans to the end of the line before it
// parses: a line of brackets takes some 200 times its size. It takes the byte 4 for the end of the
// text and lets malformed UTF-8 through. So the text is looked at first. Of the escapes \N and \_
// it makes single bytes, which are no UTF-8.

namespace zel {

namespace {

constexpr std::size_t mostBytes = std::size_t{16} << 20U, mostBytesOfLine = std::size_t{64} << 10U,
                      mostNodes = 500'000, mostDepth = 32;

struct ReadingEnds {
    YAML::Mark mark;
    std::string what;
};

// With whole characters where the library has left half of one.
std::string Mended(const std::string& text) {
    if (wm::IsUtf8(text))
        return text;
    std::string mended;
    std::size_t within = 0;  // bytes that belong to the character that has begun
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isHalf = within == 0 && (byte == 0x85 || byte == 0xA0);
        if (byte >= 0xC0)
            within = byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : 1;
        else if (byte >= 0x80 && !isHalf)
            --within;
        mended.append(isHalf ? "\xC2" : "").append(1, c);
    }
    return mended;
}

class TreeBuilder : public YAML::EventHandler {
public:
    const YamlNode* Root() const { return root_; }
    void Clear() {
        const int start = start_;
        *this = TreeBuilder();
        start_ = start;
    }

    void OnDocumentStart(const YAML::Mark& mark) override {
        if (mark.pos == start_)
            throw ReadingEnds{mark, "no YAML: what stands there belongs to nothing"};
        start_ = mark.pos;
    }
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override {
        Place(NewNode(YamlNode::Kind::null, mark), mark, anchor);
    }
    void OnAlias(const YAML::Mark& mark, YAML::anchor_t anchor) override {
        const auto known = anchors_.find(anchor);
        if (known == anchors_.end())
            throw ReadingEnds{mark, "an alias stands within what it stands for"};
        Place(known->second, mark, 0);
    }
    void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                  const std::string& value) override {
        YamlNode* const node = NewNode(YamlNode::Kind::text, mark);
        if (tag != "?" && tag != "!" && tag != "tag:yaml.org,2002:str")
            throw ReadingEnds{mark, "the tag \"" + tag + "\" is not understood"};
        node->isQuoted = tag != "?";
        node->text = Mended(value);
        Place(node, mark, anchor);
    }
    void OnSequenceStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                         YAML::EmitterStyle::value /*style*/) override {
        Open(YamlNode::Kind::list, mark, tag, anchor);
    }
    void OnSequenceEnd() override { Close(); }
    void OnMapStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                    YAML::EmitterStyle::value /*style*/) override {
        Open(YamlNode::Kind::map, mark, tag, anchor);
    }
    void OnMapEnd() override { Close(); }

private:
    struct Level {
        YamlNode* node;
        YAML::anchor_t anchor;
        const YamlNode* key = nullptr;     // of a map, until its value comes
        std::set<std::string_view> names;  // of a map, to find one that stands twice
    };

    YamlNode* NewNode(YamlNode::Kind kind, const YAML::Mark& mark) {
        if (nodes_.size() == mostNodes)
            throw ReadingEnds{mark, "more than 500000 values in one document"};
        YamlNode& node = nodes_.emplace_back();
        node.kind = kind;
        node.line = mark.line + 1;
        node.column = mark.column + 1;
        return &node;
    }

    void Open(YamlNode::Kind kind, const YAML::Mark& mark, const std::string& tag,
              YAML::anchor_t anchor) {
        if (levels_.size() == mostDepth)
            throw ReadingEnds{mark, "nested more than 32 levels deep"};
        const bool isPlain = tag.empty() || tag == "?" || tag == "!" ||
                             tag == "tag:yaml.org,2002:map" || tag == "tag:yaml.org,2002:seq";
        if (!isPlain)
            throw ReadingEnds{mark, "the tag \"" + tag + "\" is not understood"};
        if (!levels_.empty() && levels_.back().node->kind == YamlNode::Kind::map &&
            levels_.back().key == nullptr)
            throw ReadingEnds{mark, "a key has to be a text"};
        levels_.push_back({NewNode(kind, mark), anchor, nullptr, {}});
    }

    void Close() {
        const Level level = std::move(levels_.back());
        levels_.pop_back();
        Place(level.node, {}, level.anchor);
    }

    void Place(const YamlNode* node, const YAML::Mark& mark, YAML::anchor_t anchor) {
        if (anchor != 0)
            anchors_[anchor] = node;
        if (levels_.empty())
            root_ = node;
        else if (levels_.back().node->kind == YamlNode::Kind::list)
            levels_.back().node->items.push_back(node);
        else if (levels_.back().key == nullptr)
            PlaceKey(*node, mark);
        else
            levels_.back().node->entries.emplace_back(std::exchange(levels_.back().key, nullptr),
                                                      node);
    }

    void PlaceKey(const YamlNode& key, const YAML::Mark& mark) {
        if (key.kind != YamlNode::Kind::text)
            throw ReadingEnds{mark, "a key has to be a text"};
        if (key.text == "<<" && !key.isQuoted)
            throw ReadingEnds{mark, "merge keys (<<) are not understood"};
        if (!levels_.back().names.insert(key.text).second)
            throw ReadingEnds{mark, "the key \"" + key.text + "\" stands twice"};
        levels_.back().key = &key;
    }

    std::deque<YamlNode> nodes_;
    std::map<YAML::anchor_t, const YamlNode*> anchors_;
    std::vector<Level> levels_;
    const YamlNode* root_ = nullptr;
    int start_ = -1;  // of the document
};

bool RefuseText(int line, int column, std::string what, RuleProblem* problem) {
    problem->line = line;
    problem->column = column;
    problem->what = std::move(what);
    return false;
}

// Whether the library reads the text as it stands.
bool IsReadable(std::string_view yaml, RuleProblem* problem) {
    if (yaml.size() > mostBytes)
        return RefuseText(0, 0, "larger than 16 MiB", problem);
    int line = 1;
    for (std::size_t begin = 0; begin < yaml.size(); ++line) {
        const std::size_t end = std::min(yaml.find('\n', begin), yaml.size() - 1) + 1;
        const std::string_view text = yaml.substr(begin, end - begin);
        const auto bad = std::find_if(text.begin(), text.end(), [](char c) {
            return (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r') ||
                   c == 0x7F;
        });
        if (bad != text.end())
            return RefuseText(line, static_cast<int>(bad - text.begin()) + 1, "a control character",
                              problem);
        if (text.size() > mostBytesOfLine)
            return RefuseText(line, 0, "a line of more than 64 KiB", problem);
        if (!wm::IsUtf8(text))
            return RefuseText(line, 0, "not UTF-8", problem);
        begin = end;
    }
    return true;
}

bool ReadDocuments(std::string_view yaml, const std::function<void(const YamlNode&)>& document) {
    std::istringstream stream{std::string(yaml)};
    YAML::Parser parser(stream);
    for (TreeBuilder builder; parser.HandleNextDocument(builder); builder.Clear()) {
        if (builder.Root() != nullptr)
            document(*builder.Root());
    }
    return true;
}

}  // namespace

const YamlNode* YamlNode::Find(std::string_view key) const noexcept {
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [&](const Entry& entry) { return entry.first->text == key; });
    return found == entries.end() ? nullptr : found->second;
}

bool ReadYaml(std::string_view yaml, const std::function<void(const YamlNode&)>& document,
              RuleProblem* problem) {
    if (!IsReadable(yaml, problem))
        return false;
    try {
        return ReadDocuments(yaml, document);
    } catch (const YAML::Exception& error) {
        return RefuseText(error.mark.line + 1, error.mark.column + 1, "no YAML: " + error.msg,
                          problem);
    } catch (ReadingEnds& end) {
        return RefuseText(end.mark.line + 1, end.mark.column + 1, std::move(end.what), problem);
    }
}

bool RefuseAt(const YamlNode& node, std::string what, RuleProblem* problem) {
    return RefuseText(node.line, node.column, std::move(what), problem);
}

bool TextsOf(const YamlNode& node, std::string_view name, std::vector<std::string>* texts,
             RuleProblem* problem) {
    if (node.kind == YamlNode::Kind::map)
        return RefuseAt(node, "\"" + std::string(name) + "\" has to be a text or a list of texts",
                        problem);
    if (node.kind == YamlNode::Kind::text)
        texts->push_back(node.text);
    for (const YamlNode* const item : node.items) {
        if (item->kind != YamlNode::Kind::text)
            return RefuseAt(*item, "\"" + std::string(name) + "\" has to be a list of texts",
                            problem);
        texts->push_back(item->text);
    }
    return true;
}

bool TextOf(const YamlNode& node, std::string_view name, std::string* text, RuleProblem* problem) {
    if (node.kind == YamlNode::Kind::list || node.kind == YamlNode::Kind::map)
        return RefuseAt(node, "\"" + std::string(name) + "\" has to be a text", problem);
    *text = node.text;
    return true;
}

}  // namespace zel
