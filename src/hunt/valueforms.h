#pragma once

#include <string_view>
#include <vector>

#include "hunt/fieldplaces.h"
#include "records/sourcefields.h"

namespace zel {

// Appends what the source may have written where a record holds `stored`, and `stored` itself: a
// conversion gives one text for several. Views of `stored`, of constants, or of what `keeper`
// keeps.
void AppendForms(Conversion conversion, std::string_view stored, SourceFields& keeper,
                 std::vector<std::string_view>* forms);

// A piece of `part` that is in the record's text wherever a value of a field of that place has
// `part` in it, in whatever letter case; empty when there may be none.
std::string_view CertainPiece(const FieldPlace& place, std::string_view part);

// "SHA1=..,MD5=.." of the hashes that are given; empty for none.
std::string_view HashList(std::string_view md5, std::string_view sha256, SourceFields& keeper);

}  // namespace zel
