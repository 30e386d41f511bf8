#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "processes/processtable.h"

namespace zel {

// The work of ProcessTable::Link: makes the table's nodes of its launches and ends. Used once.
class ProcessLinks {
public:
    explicit ProcessLinks(ProcessTable& table) : table_(table), nodes_(table.nodes_) {}
    void Make();

private:
    using Node = std::uint32_t;
    using Launch = ProcessTable::Launch;
    using End = ProcessTable::End;
    // A number is one process's at a time, on one machine.
    using Number = std::pair<std::string_view, std::uint64_t>;

    void MakeNodes();
    bool MergesInto(Node earlier, const Launch& launch) const;
    void Merge(Node earlier, const Launch& launch);
    void NoteEnds();
    Node ParentOf(Node child);
    Node Launched(const ProcessTable::Launcher& by, Node child) const;
    std::string NameOfUnseen(const ProcessTable::Launcher& by, Node child) const;
    Node Unseen(const ProcessTable::Launcher& by, Node child);
    void NoteEndsOfUnseen();
    void LinkChildren();
    std::size_t EndsBefore(const Number& number, std::int64_t time) const;

    ProcessTable& table_;
    std::vector<ProcessNode>& nodes_;
    std::vector<ProcessTable::Launcher> launchers_;  // of the nodes that a launch made
    std::unordered_map<std::string_view, Node> byUid_;
    std::map<Number, std::vector<Node>> byNumber_;    // in the order of their start
    std::map<Number, std::vector<const End*>> ends_;  // in the order of time
    std::map<std::string, Node> unseen_;
};

}  // namespace zel
