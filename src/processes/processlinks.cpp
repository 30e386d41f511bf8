#include "processes/processlinks.h"

#include <algorithm>

#include "common/asciicase.h"

// Who began whom.
//
// A source's identifier of a process is never used again, so where a launch names its maker by one,
// that decides. Numbers are used again: the maker is the last process with that number that was
// begun by then, on that machine, had not ended, and is of the same program. Where that one does
// not suit, the maker's own launch is not among the events; it is then known from what its children
// say of it, and stands in the tree without a start.
//
// Several logs of one machine tell of one launch, mostly one with an identifier and one without.
// They are one process when number and program are the same and the moments nearly.

namespace zel {

namespace {

constexpr std::int64_t nearly = 2000;  // milliseconds: how far clocks and logs are apart

std::string_view ProgramOf(std::string_view path) {
    return path.substr(path.find_last_of("\\/") + 1);
}

// What is not known contradicts nothing.
bool MayBeSameProgram(std::string_view a, std::string_view b) {
    return a.empty() || b.empty() || ZEL::EqualsNoCase(ProgramOf(a), ProgramOf(b));
}

void Fill(std::string_view* text, std::string_view other) {
    if (text->empty())
        *text = other;
}

}  // namespace

void ProcessLinks::Make() {
    std::stable_sort(
        table_.launches_.begin(), table_.launches_.end(),
        [](const Launch& a, const Launch& b) { return a.process.start < b.process.start; });
    std::stable_sort(table_.ends_.begin(), table_.ends_.end(),
                     [](const End& a, const End& b) { return a.time < b.time; });
    for (const End& end : table_.ends_)
        if (end.pid)
            ends_[{end.computer, *end.pid}].push_back(&end);
    MakeNodes();
    NoteEnds();
    const auto launched = static_cast<Node>(nodes_.size());
    for (Node child = 0; child < launched; ++child) {
        const Node parent = ParentOf(child);  // may add a node
        nodes_[child].parent = parent;
    }
    NoteEndsOfUnseen();
    LinkChildren();
}

void ProcessLinks::MakeNodes() {
    for (const Launch& launch : table_.launches_) {
        const ProcessNode& process = launch.process;
        const auto known = process.uid.empty() ? byUid_.end() : byUid_.find(process.uid);
        Node earlier = known != byUid_.end() ? known->second : ProcessNode::none;
        std::vector<Node>* const sameNumber =
            process.pid ? &byNumber_[{process.computer, *process.pid}] : nullptr;
        if (earlier == ProcessNode::none && sameNumber != nullptr && !sameNumber->empty() &&
            MergesInto(sameNumber->back(), launch))
            earlier = sameNumber->back();
        if (earlier != ProcessNode::none) {
            Merge(earlier, launch);
            continue;
        }
        const auto node = static_cast<Node>(nodes_.size());
        nodes_.push_back(process);
        launchers_.push_back(launch.by);
        if (!process.uid.empty())
            byUid_.emplace(process.uid, node);
        if (sameNumber != nullptr)
            sameNumber->push_back(node);
    }
}

bool ProcessLinks::MergesInto(Node earlier, const Launch& launch) const {
    const ProcessNode& node = nodes_[earlier];
    const bool isOtherLog = node.uid.empty() != launch.process.uid.empty();
    const bool isSame =
        node.start == launch.process.start && node.cmdLine == launch.process.cmdLine;
    return (isOtherLog || (node.uid.empty() && launch.process.uid.empty() && isSame)) &&
           launch.process.start - node.start <= nearly &&
           MayBeSameProgram(node.path, launch.process.path);
}

void ProcessLinks::Merge(Node earlier, const Launch& launch) {
    ProcessNode& node = nodes_[earlier];
    ProcessTable::Launcher& by = launchers_[earlier];
    if (node.uid.empty() && !launch.process.uid.empty())
        byUid_.emplace(launch.process.uid, earlier);
    Fill(&node.uid, launch.process.uid);
    Fill(&node.path, launch.process.path);
    Fill(&node.cmdLine, launch.process.cmdLine);
    Fill(&node.user, launch.process.user);
    Fill(&by.uid, launch.by.uid);
    Fill(&by.path, launch.by.path);
    Fill(&by.cmdLine, launch.by.cmdLine);
    if (!by.pid)
        by.pid = launch.by.pid;
}

// Each end is the last such process's that was begun ahead of it.
void ProcessLinks::NoteEnds() {
    for (const End& end : table_.ends_) {
        const auto known = end.uid.empty() ? byUid_.end() : byUid_.find(end.uid);
        Node node = known != byUid_.end() ? known->second : ProcessNode::none;
        const auto same = end.pid ? byNumber_.find({end.computer, *end.pid}) : byNumber_.end();
        if (node == ProcessNode::none && same != byNumber_.end()) {
            const auto behind = std::upper_bound(
                same->second.begin(), same->second.end(), end.time + nearly,
                [this](std::int64_t time, Node each) { return time < nodes_[each].start; });
            if (behind != same->second.begin() &&
                (end.uid.empty() || nodes_[*(behind - 1)].uid.empty()) &&
                MayBeSameProgram(nodes_[*(behind - 1)].path, end.path))
                node = *(behind - 1);
        }
        if (node != ProcessNode::none && nodes_[node].end == ProcessNode::never)
            nodes_[node].end = end.time;
    }
}

ProcessLinks::Node ProcessLinks::ParentOf(Node child) {
    const ProcessTable::Launcher by = launchers_[child];
    if (by.uid.empty() && !by.pid && by.path.empty())
        return ProcessNode::none;
    const Node launched = Launched(by, child);
    return launched != ProcessNode::none ? launched : Unseen(by, child);
}

ProcessLinks::Node ProcessLinks::Launched(const ProcessTable::Launcher& by, Node child) const {
    const auto known = by.uid.empty() ? byUid_.end() : byUid_.find(by.uid);
    if (known != byUid_.end())
        return known->second != child ? known->second : ProcessNode::none;
    const ProcessNode& process = nodes_[child];
    const auto same = by.pid ? byNumber_.find({process.computer, *by.pid}) : byNumber_.end();
    if (same == byNumber_.end())
        return ProcessNode::none;
    const auto behind = std::upper_bound(
        same->second.begin(), same->second.end(), process.start,
        [this](std::int64_t time, Node each) { return time < nodes_[each].start; });
    if (behind == same->second.begin() || *(behind - 1) == child)
        return ProcessNode::none;
    const ProcessNode& last = nodes_[*(behind - 1)];
    const bool hadEnded = last.end != ProcessNode::never && last.end + nearly < process.start;
    const bool isAnother = !by.uid.empty() && !last.uid.empty();
    return !hadEnded && !isAnother && MayBeSameProgram(last.path, by.path) ? *(behind - 1)
                                                                           : ProcessNode::none;
}

// What children of one unseen maker have in common: machine, number, program, and how many with
// that number had ended by then. Of a maker whose program alone is known there is one for each
// child.
std::string ProcessLinks::NameOfUnseen(const ProcessTable::Launcher& by, Node child) const {
    const ProcessNode& process = nodes_[child];
    std::string name = by.pid ? std::to_string(*by.pid) + "\n" : "\n" + std::to_string(child);
    if (by.pid)
        name += std::to_string(EndsBefore({process.computer, *by.pid}, process.start)) + "\n";
    name.append(ProgramOf(by.path)).append("\n").append(process.computer);
    ZEL::MakeUpperAscii(name);
    return name;
}

// One log may tell the maker's identifier and another may not. Children come in the order of their
// start, so that a number is the last one's that was found to have it.
ProcessLinks::Node ProcessLinks::Unseen(const ProcessTable::Launcher& by, Node child) {
    const auto known = by.uid.empty() ? byUid_.end() : byUid_.find(by.uid);
    Node node = known != byUid_.end() ? known->second : ProcessNode::none;
    const std::string name = NameOfUnseen(by, child);
    const auto named = unseen_.find(name);
    if (node == ProcessNode::none && named != unseen_.end() &&
        (by.uid.empty() || nodes_[named->second].uid.empty()))
        node = named->second;
    if (node == ProcessNode::none) {
        node = static_cast<Node>(nodes_.size());
        nodes_.emplace_back();
        nodes_.back().pid = by.pid;
        nodes_.back().computer = nodes_[child].computer;
    }
    unseen_[name] = node;
    if (!by.uid.empty())
        byUid_.emplace(by.uid, node);
    Fill(&nodes_[node].uid, by.uid);
    Fill(&nodes_[node].path, by.path);
    Fill(&nodes_[node].cmdLine, by.cmdLine);
    return node;
}

std::size_t ProcessLinks::EndsBefore(const Number& number, std::int64_t time) const {
    const auto ends = ends_.find(number);
    if (ends == ends_.end())
        return 0;
    return static_cast<std::size_t>(
        std::lower_bound(ends->second.begin(), ends->second.end(), time - nearly,
                         [](const End* end, std::int64_t t) { return end->time < t; }) -
        ends->second.begin());
}

// Of a maker that was not seen to begin: by its identifier, else the first end of such a process
// behind its last child.
void ProcessLinks::NoteEndsOfUnseen() {
    std::map<Node, std::int64_t> lastChild;
    for (const ProcessNode& node : nodes_)
        if (node.parent != ProcessNode::none && nodes_[node.parent].start == ProcessNode::never)
            lastChild[node.parent] = std::max(lastChild[node.parent], node.start);
    for (const auto& [parent, time] : lastChild) {
        ProcessNode& node = nodes_[parent];
        const auto ends = node.pid ? ends_.find({node.computer, *node.pid}) : ends_.end();
        if (ends == ends_.end())
            continue;
        for (const End* const end : ends->second) {
            const bool isSame = node.uid.empty() || end->uid.empty() || node.uid == end->uid;
            if (end->time + nearly < time || !isSame || !MayBeSameProgram(node.path, end->path))
                continue;
            node.end = end->time;
            break;
        }
    }
}

// From the last to the first, each in front of its siblings: so they stand in order. Events may
// contradict each other; whom following the makers leads back to himself has none.
void ProcessLinks::LinkChildren() {
    std::vector<Node> seenFrom(nodes_.size(), ProcessNode::none);
    for (Node node = 0; node < nodes_.size(); ++node) {
        Node at = node;
        for (; at != ProcessNode::none && seenFrom[at] == ProcessNode::none; at = nodes_[at].parent)
            seenFrom[at] = node;
        if (at != ProcessNode::none && seenFrom[at] == node)
            nodes_[at].parent = ProcessNode::none;
    }
    for (auto node = static_cast<Node>(nodes_.size()); node-- > 0;) {
        const Node parent = nodes_[node].parent;
        if (parent == ProcessNode::none)
            continue;
        nodes_[node].nextSibling = nodes_[parent].firstChild;
        nodes_[parent].firstChild = node;
    }
}

}  // namespace zel
