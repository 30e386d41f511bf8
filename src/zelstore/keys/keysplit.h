#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "common/result.h"

namespace ZEL {

// The fields of one key, as views into it: the key's bytes must outlive their use. Pieces are split
// off from the key's end, only as far as they are asked for, and nothing is allocated. For one
// thread. A default-made one has no fields. Reading changes what is remembered, though not what is
// answered: hence the mutable members, and one thread.
class KeyFields {
public:
    // The value of the last piece with this name; none when the key has no such field. The first
    // call for a field costs the splitting up to it, later ones a walk over the pieces.
    std::optional<std::string_view> Find(std::string_view name) const noexcept;

private:
    friend void SplitKeyFields(std::string_view key, KeyFields* fields) noexcept;

    // More than any key of this store has; what a stranger's key has beyond is split anew for each
    // field.
    static constexpr std::size_t mostPieces = 24;
    mutable std::array<std::string_view, mostPieces> pieces_;  // the key's last comes first
    mutable std::size_t count_ = 0;
    mutable std::optional<std::string_view> rest_;  // none when all is split
};

// Splits at each '<' and each piece at each '>'; only pieces of exactly two parts count, and a
// later one replaces an earlier one of its name. Nothing is split yet: this only sets the key that
// Find works on. One object may be used for one key after the other, which is how a scan does
// without allocations.
void SplitKeyFields(std::string_view key, KeyFields* fields) noexcept;

// A field as a query sees it: type_id and a missing target_type_id are worked out from the object
// type. 0x80004005 for an absent field; success may leave `*value` empty. Views into the key or of
// constant texts. Text that is not UTF-8 counts as absent too: no condition of a query could be
// said about it.
HRESULT GetKeyField(const KeyFields& fields, std::string_view name,
                    std::string_view* value) noexcept;

}  // namespace ZEL
