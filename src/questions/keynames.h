#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zel {

// The names that keys hold in the columns `action` and `object`, exactly: a record with another one
// gets no key. Empty for any other column.
std::vector<std::string> KeyNames(std::string_view column);

// Whether a name is one of an action.
bool IsAction(std::string_view name);
// Whether a sub-query can ask for the kind: the vocabulary has more, of which there are no classes.
bool IsObjectToAsk(std::string_view name);

}  // namespace zel
