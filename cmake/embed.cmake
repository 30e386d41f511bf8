# Writes the page's files and the library that draws into a source (src/agent/web/webassets.h).
#   cmake -DOUTPUT=FILE.cpp -DFILES=A;B -DD3=FILE -P embed.cmake
set(types html "text/html" js "text/javascript" css "text/css" svg "image/svg+xml")

set(data "")
set(rows "")
set(number 0)
foreach(file IN LISTS FILES D3)
  get_filename_component(name ${file} NAME)
  if("${file}" STREQUAL "${D3}")
    set(name d3.js)
  endif()
  string(REGEX REPLACE "^.*\\." "" extension ${name})
  list(FIND types ${extension} place)
  math(EXPR place "${place} + 1")
  list(GET types ${place} type)
  file(SHA256 ${file} tag)
  file(READ ${file} bytes HEX)
  string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
  string(APPEND data "constexpr unsigned char data${number}[] = {${bytes}0};\n")
  string(APPEND rows "    Asset(\"${name}\", \"${type}; charset=utf-8\", \"\\\"${tag}\\\"\", data${number}),\n")
  math(EXPR number "${number} + 1")
endforeach()

file(WRITE ${OUTPUT} "#include \"agent/web/webassets.h\"

#include <cstddef>

namespace zel {

namespace {

${data}
template <std::size_t size>
WebAsset Asset(std::string_view name, std::string_view type, std::string_view tag,
               const unsigned char (&bytes)[size]) {
    return {name, type, tag, {reinterpret_cast<const char*>(bytes), size - 1}};
}

}  // namespace

std::span<const WebAsset> WebAssets() {
    static const WebAsset assets[] = {
${rows}    };
    return assets;
}

}  // namespace zel
")
