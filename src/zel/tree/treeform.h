#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "processes/processtable.h"

namespace zel {

// One process of a tree: those above the one that was asked for, itself, and all below it, each
// behind its parent.
struct TreeLine {
    std::uint32_t node = 0;  // of the table
    std::size_t depth = 0;
    enum class Relation : std::uint8_t { ancestor, self, descendant } relation = Relation::self;
};
std::vector<TreeLine> TreeOf(const ProcessTable& table, std::uint32_t node);

// As people read it: a line for each, with lines that tell who began whom. Fits `columns`; 0: all
// of each command line.
std::string DrawnTree(const ProcessTable& table, std::span<const TreeLine> tree,
                      std::size_t columns);
// An object for each process that holds its children. Without a newline at the end.
std::string TreeAsJson(const ProcessTable& table, std::span<const TreeLine> tree);
// An object a line; its parent by identifier and number.
std::string TreeAsLines(const ProcessTable& table, std::span<const TreeLine> tree);

}  // namespace zel
