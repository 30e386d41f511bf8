#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace zel {

// Looks for many texts at once, without regard to the case of ASCII letters. Any thread, each with
// a Scratch of its own.
class LiteralPass {
public:
    // What a search writes to. Must not outlive its pass.
    class Scratch {
    public:
        explicit Scratch(const LiteralPass& pass);
        ~Scratch();
        Scratch(const Scratch&) = delete;
        Scratch& operator=(const Scratch&) = delete;

    private:
        friend class LiteralPass;
        struct Memory;
        std::unique_ptr<Memory> memory_;
    };

    // None of them empty.
    explicit LiteralPass(const std::vector<std::string>& texts);
    ~LiteralPass();

    // Adds the places in the list of the texts that stand in `text`, each once and in any order.
    // False where that can't be told, for want of memory or on a processor without what the search
    // needs; what was added then says nothing.
    bool Find(std::string_view text, Scratch& scratch, std::vector<std::uint32_t>* found) const;

private:
    struct Database;
    std::unique_ptr<Database> database_;
};

}  // namespace zel
