#pragma once

#include <span>
#include <string_view>

namespace zel {

// What the page is made of: the files of src/agent/web/page and the library that draws, compiled in
// (cmake/embed.cmake).
struct WebAsset {
    std::string_view name;
    std::string_view type;
    std::string_view tag;  // of its content, as ETag has it
    std::string_view bytes;
};

std::span<const WebAsset> WebAssets();

}  // namespace zel
