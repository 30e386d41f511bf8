#include <algorithm>
#include <cstdlib>
#include <unordered_map>

#include "agent/web/eventshow.h"
#include "processes/processtable.h"
#include "records/recordwriter.h"

// One walk over launches and ends fills the table of who began whom; the tree is what lies above
// the process and below it, as far as a page can show it. Each launch's key is kept beside, so that
// a process leads to its event.

namespace zel {

namespace {

namespace hr = ZEL::hr;
using Node = std::uint32_t;

constexpr std::size_t mostTableBytes = std::size_t{128} << 20;
constexpr std::size_t mostKeyBytes = std::size_t{32} << 20;
constexpr std::size_t mostNodes = 400, mostAbove = 64;

class TreeRun {
public:
    TreeRun(QuestionWork& work, const CountContext& context)
        : work_(work), context_(context), table_(mostTableBytes) {}

    void Run(const std::string& key);

private:
    bool Walk();
    void KeepKey(const ZEL::QueryRow& row);
    std::vector<Node> TreeAround(Node here);
    void Write(const std::vector<Node>& nodes, Node here);

    QuestionWork& work_;
    const CountContext& context_;
    ProcessTable table_;
    RecordReader reader_;
    std::unordered_map<std::string, std::string> keys_;  // of launches, by who was launched when
    std::size_t keyBytes_ = 0;
    bool isCut_ = false;
};

std::string NameOf(std::string_view uid, std::optional<std::uint64_t> pid, std::int64_t start) {
    if (uid.starts_with('{') && uid.ends_with('}') && uid.size() > 2)
        uid = uid.substr(1, uid.size() - 2);
    return std::string(uid) + "/" + (pid ? std::to_string(*pid) : "") + "/" + std::to_string(start);
}

void TreeRun::KeepKey(const ZEL::QueryRow& row) {
    if (keyBytes_ > mostKeyBytes)
        return;
    const auto valueOf = [this](const char* name) {
        return std::string(reader_.Value(*FindColumn(name)).value_or(""));
    };
    const std::string pid = valueOf("target_pid");
    const std::string name =
        NameOf(valueOf("target_uid"),
               pid.empty() ? std::nullopt
                           : std::optional<std::uint64_t>(std::strtoull(pid.c_str(), nullptr, 10)),
               EventKeyReader().Read(row.key).time);
    keyBytes_ += name.size() + row.key.size();
    keys_.emplace(name, row.key);
}

// An event about another kind of thing leads to the process that did it.
bool TreeRun::Walk() {
    std::string problem;
    auto launches =
        EventQuestion::Make({{"object", "process"}, {"action", "launch"}, {"action", "terminate"}},
                            context_.ask, &problem);
    if (!launches)
        return false;
    const ZEL::HRESULT result =
        launches->WalkOnce(work_, [&](const ZEL::QueryRow& row, const EventKeyHead& head) {
            if (isCut_ || !reader_.Read(row.text))
                return hr::ok;
            isCut_ = !table_.Add(reader_);
            if (!isCut_ && head.action == "launch")
                KeepKey(row);
            return hr::ok;
        });
    return Succeeded(result) && !work_.IsOver();
}

std::vector<Node> TreeRun::TreeAround(Node here) {
    const auto all = table_.All();
    std::vector<Node> nodes;
    for (Node above = all[here].parent; above != ProcessNode::none; above = all[above].parent) {
        if (nodes.size() == mostAbove) {
            isCut_ = true;
            break;
        }
        nodes.push_back(above);
    }
    std::reverse(nodes.begin(), nodes.end());
    nodes.push_back(here);
    for (std::size_t next = nodes.size() - 1; next < nodes.size(); ++next)
        for (Node child = all[nodes[next]].firstChild; child != ProcessNode::none;
             child = all[child].nextSibling) {
            if (nodes.size() == mostNodes) {
                isCut_ = true;
                return nodes;
            }
            nodes.push_back(child);
        }
    return nodes;
}

void TreeRun::Write(const std::vector<Node>& nodes, Node here) {
    const auto all = table_.All();
    std::string body;
    RecordWriter writer(&body);
    const auto textOrNull = [&](std::string_view name, std::string_view text) {
        writer.Key(name);
        text.empty() ? writer.Json("null") : writer.Text(text);
    };
    writer.BeginObject().Key("nodes").BeginArray();
    for (const Node number : nodes) {
        const ProcessNode& node = all[number];
        const bool hasParent = std::find(nodes.begin(), nodes.end(), node.parent) != nodes.end();
        const auto key = keys_.find(NameOf(node.uid, node.pid, node.start));
        writer.BeginObject().Key("id").Text(std::to_string(number));
        textOrNull("parent", hasParent ? std::to_string(node.parent) : "");
        textOrNull("key", key != keys_.end() ? key->second : "");
        textOrNull("time", node.start != ProcessNode::never ? TimeText(node.start) : "");
        textOrNull("ended", node.end != ProcessNode::never ? TimeText(node.end) : "");
        textOrNull("path", node.path);
        textOrNull("command", node.cmdLine);
        textOrNull("user", node.user);
        textOrNull("pid", node.pid ? std::to_string(*node.pid) : "");
        writer.Key("here").Json(number == here ? "true" : "false").EndObject();
    }
    writer.EndArray().Key("cut").Json(isCut_ ? "true" : "false").EndObject();
    work_.Write(body += '\n');
}

void TreeRun::Run(const std::string& key) {
    const auto event = FindEventText(work_, key);
    if (!event)
        return;
    isCut_ = !Walk() || isCut_;
    table_.Link();
    const auto here = reader_.Read(*event) ? table_.Of(reader_) : std::nullopt;
    if (here)
        return Write(TreeAround(*here), *here);
    work_.Write(isCut_ ? "{\"nodes\":[],\"cut\":true}\n" : "{\"nodes\":[],\"cut\":false}\n");
}

}  // namespace

void AnswerTree(QuestionWork& work, const CountContext& context, const std::string& key) {
    TreeRun(work, context).Run(key);
}

}  // namespace zel
