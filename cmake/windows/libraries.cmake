# The store's libraries, made of the sources that scripts/setup --windows lays out, as far as the
# store uses them. Their warnings are not ours.
foreach(option LEVELDB_BUILD_TESTS LEVELDB_BUILD_BENCHMARKS LEVELDB_INSTALL)
  set(${option} OFF CACHE INTERNAL "")
endforeach()
add_subdirectory(${ZEL_WINDOWS_SOURCES}/leveldb leveldb EXCLUDE_FROM_ALL SYSTEM)
add_library(leveldb::leveldb ALIAS leveldb)
set_target_properties(leveldb PROPERTIES CXX_STANDARD 17)  # it uses names that later ones lack

add_library(simdjson STATIC EXCLUDE_FROM_ALL ${ZEL_WINDOWS_SOURCES}/simdjson/singleheader/simdjson.cpp)
target_include_directories(simdjson SYSTEM PUBLIC ${ZEL_WINDOWS_SOURCES}/simdjson/singleheader)
add_library(simdjson::simdjson ALIAS simdjson)

set(cpprest ${ZEL_WINDOWS_SOURCES}/cpprest/Release)
target_include_directories(zel_json_headers SYSTEM INTERFACE ${cpprest}/include)
add_library(json STATIC EXCLUDE_FROM_ALL
  ${cpprest}/src/json/json.cpp
  ${cpprest}/src/json/json_parsing.cpp
  ${cpprest}/src/json/json_serialization.cpp
  ${cpprest}/src/utilities/asyncrt_utils.cpp
  cmake/windows/json/tasks.cpp)
target_include_directories(json PRIVATE cmake/windows/json)
target_link_libraries(json PUBLIC zel_json_headers)
target_link_libraries(zel_json INTERFACE json)

foreach(target leveldb simdjson json)
  target_compile_options(${target} PRIVATE -w)
endforeach()
