#include "zel/tree/treeform.h"

#include <algorithm>

#include "common/jsontext.h"
#include "records/eventtime.h"
#include "zel/terminal/textfit.h"

// Trees may be as deep as there are processes, so nothing here calls itself: a tree is a list of
// lines with their depths, and each form walks it.

namespace zel {

namespace {

using Relation = TreeLine::Relation;
constexpr std::uint32_t none = ProcessNode::none;

std::string TimeText(std::int64_t time) {
    const auto text = time != ProcessNode::never ? EventTimeOfMilliseconds(time) : std::nullopt;
    return text ? text->text : "";
}

std::string_view ProgramOf(const ProcessNode& node) {
    const std::string_view name = node.path.substr(node.path.find_last_of("\\/") + 1);
    return name.empty() ? "?" : name;
}

std::string AtRight(std::string text, std::size_t width) {
    return text.size() < width ? text.insert(0, width - text.size(), ' ') : text;
}

// What stands ahead of a process: whether each of its ancestors, and it, has siblings to come.
class Branches {
public:
    std::string Ahead(std::size_t depth, bool isLast) {
        isLast_.resize(depth);
        if (depth == 0)
            return "";
        isLast_[depth - 1] = isLast;
        const std::size_t first = depth > mostShown ? depth - mostShown : 0;
        std::string text = first > 0 ? "… " : "";
        for (std::size_t i = first; i + 1 < depth; ++i)
            text += isLast_[i] ? "   " : "│  ";
        return text + (isLast ? "└─ " : "├─ ");
    }

private:
    static constexpr std::size_t mostShown = 40;  // levels: chains may be as long as there is room
    std::vector<bool> isLast_;
};

void AppendMember(std::string* json, const char* name, std::string_view text) {
    if (!text.empty())
        json->append(json->ends_with('{') ? "\"" : ",\"")
            .append(name)
            .append("\":")
            .append(wm::JsonString(text));
}

void AppendNumber(std::string* json, const char* name, std::optional<std::uint64_t> number) {
    if (number)
        json->append(json->ends_with('{') ? "\"" : ",\"")
            .append(name)
            .append("\":")
            .append(std::to_string(*number));
}

// Without its closing brace.
std::string ObjectOf(const ProcessNode& node, Relation relation) {
    constexpr const char* names[] = {"ancestor", "self", "descendant"};
    std::string json = "{";
    AppendMember(&json, "relation", names[static_cast<std::size_t>(relation)]);
    AppendMember(&json, "uid", node.uid);
    AppendNumber(&json, "pid", node.pid);
    AppendMember(&json, "path", node.path);
    AppendMember(&json, "cmd_line", node.cmdLine);
    AppendMember(&json, "user", node.user);
    AppendMember(&json, "computer", node.computer);
    AppendMember(&json, "start", TimeText(node.start));
    AppendMember(&json, "end", TimeText(node.end));
    return json;
}

}  // namespace

std::vector<TreeLine> TreeOf(const ProcessTable& table, std::uint32_t node) {
    const auto all = table.All();
    std::vector<TreeLine> tree;
    for (std::uint32_t above = all[node].parent; above != none; above = all[above].parent)
        tree.push_back({above, 0, Relation::ancestor});
    std::reverse(tree.begin(), tree.end());
    for (std::size_t i = 0; i < tree.size(); ++i)
        tree[i].depth = i;
    const std::size_t own = tree.size();
    tree.push_back({node, own, Relation::self});
    std::size_t depth = own;
    for (std::uint32_t at = all[node].firstChild; at != none;) {
        tree.push_back({at, ++depth, Relation::descendant});
        std::uint32_t next = all[at].firstChild;
        // Without children on to the next sibling, its own or an ancestor's.
        for (; next == none && depth > own; at = all[at].parent, --depth)
            next = all[at].nextSibling;
        at = next;
    }
    return tree;
}

std::string DrawnTree(const ProcessTable& table, std::span<const TreeLine> tree,
                      std::size_t columns) {
    constexpr std::size_t timeWidth = 24, pidWidth = 7;
    std::string text = "TIME                         PID  PROCESS\n";
    Branches branches;
    for (const TreeLine& line : tree) {
        const ProcessNode& node = table.All()[line.node];
        // Of an ancestor only the one child is shown that leads on.
        const bool isLast = line.relation != Relation::descendant || node.nextSibling == none;
        std::string process = branches.Ahead(line.depth, isLast);
        process += line.relation == Relation::self ? "► " : "";
        process += ProgramOf(node);
        if (node.end != ProcessNode::never)
            process += " (ended " + TimeText(node.end) + ")";
        if (!node.cmdLine.empty())
            process.append("  ").append(node.cmdLine);
        else if (!node.path.empty())
            process.append("  ").append(node.path);
        std::string time = TimeText(node.start);
        time.resize(timeWidth, ' ');
        const std::string row =
            time + " " + AtRight(node.pid ? std::to_string(*node.pid) : "", pidWidth) + "  ";
        const std::size_t left = columns > row.size() ? columns - row.size() : 1;
        text += row + (columns == 0 ? Escaped(process) : Fit(process, left, Keep::start)) + "\n";
    }
    return text;
}

std::string TreeAsJson(const ProcessTable& table, std::span<const TreeLine> tree) {
    std::string json;
    std::size_t open = 0;  // objects that are not closed yet
    for (const TreeLine& line : tree) {
        if (line.depth == open && open > 0) {
            json += ",\"children\":[";
        } else {
            for (; open > line.depth; --open)
                json += open > line.depth + 1 ? "}]" : "},";
        }
        json += ObjectOf(table.All()[line.node], line.relation);
        open = line.depth + 1;
    }
    for (; open > 0; --open)
        json += open > 1 ? "}]" : "}";
    return json;
}

std::string TreeAsLines(const ProcessTable& table, std::span<const TreeLine> tree) {
    std::string text;
    for (const TreeLine& line : tree) {
        const ProcessNode& node = table.All()[line.node];
        text += ObjectOf(node, line.relation);
        text += ",\"depth\":" + std::to_string(line.depth);
        if (node.parent != none) {
            AppendMember(&text, "parent_uid", table.All()[node.parent].uid);
            AppendNumber(&text, "parent_pid", table.All()[node.parent].pid);
        }
        text += "}\n";
    }
    return text;
}

}  // namespace zel
