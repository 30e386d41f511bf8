# The component for Windows: host services and normalisation always, as programs that run; the store
# too where its libraries or their sources are, and else its objects (docs/windows.md).
set(ZEL_WINDOWS_HEADERS ${PROJECT_SOURCE_DIR}/build/windows-include CACHE PATH
    "Headers of libraries that have no package for Windows")
find_package(Threads REQUIRED)

# GoogleTest has no package for Windows, but one with its sources.
if(ZEL_TESTS)
  set(GOOGLETEST_SOURCES /usr/src/googletest CACHE PATH "GoogleTest's sources")
  enable_testing()
  set(INSTALL_GTEST OFF)
  add_subdirectory(${GOOGLETEST_SOURCES} googletest EXCLUDE_FROM_ALL SYSTEM)
endif()

# The store's libraries: packages of the system (vcpkg), else what is built of their sources, else
# their headers alone, against which the store is compiled and not linked.
option(ZEL_WINDOWS_STORE "LevelDB, cpprestsdk, simdjson and Boost.Regex are there as packages" OFF)
set(ZEL_WINDOWS_SOURCES ${PROJECT_SOURCE_DIR}/build/windows-sources CACHE PATH "Sources of the store's libraries")
add_library(zel_json_headers INTERFACE)
target_compile_definitions(zel_json_headers INTERFACE _TURN_OFF_PLATFORM_STRING _NO_ASYNCRTIMP _NO_PPLXIMP)
target_include_directories(zel_json_headers SYSTEM BEFORE INTERFACE ${PROJECT_SOURCE_DIR}/cmake/windows)
add_library(zel_json INTERFACE)
target_link_libraries(zel_json INTERFACE zel_json_headers)
set(store_is_linked ON)
function(zel_headers)
  foreach(target ${ARGN})
    add_library(${target} INTERFACE IMPORTED)
    target_include_directories(${target} SYSTEM INTERFACE ${ZEL_WINDOWS_HEADERS})
  endforeach()
endfunction()
if(ZEL_WINDOWS_STORE)
  find_package(leveldb CONFIG REQUIRED)
  find_package(cpprestsdk CONFIG REQUIRED)
  find_package(simdjson CONFIG REQUIRED)
  find_package(Boost 1.76 REQUIRED)
  if(NOT TARGET Boost::regex)  # it comes whole in its headers
    add_library(Boost::regex ALIAS Boost::headers)
  endif()
  target_link_libraries(zel_json INTERFACE cpprestsdk::cpprest)
elseif(EXISTS ${ZEL_WINDOWS_SOURCES})
  zel_headers(Boost::headers Boost::regex)
  include(cmake/windows/libraries.cmake)
else()
  zel_headers(Boost::headers Boost::regex leveldb::leveldb simdjson::simdjson)
  target_include_directories(zel_json_headers SYSTEM INTERFACE ${ZEL_WINDOWS_HEADERS})
  set(store_is_linked OFF)
endif()

add_compile_definitions(UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00)
# Headers that this system has of its own stand in front of the others.
include_directories(BEFORE src/host/wmlib/windows/include)
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wno-restrict
                    -ffp-contract=off)
if(ZEL_WERROR)
  add_compile_options(-Werror)
endif()
if(ZEL_CHECK_LOCK_RANKS)
  add_compile_definitions(WM_CHECK_LOCK_RANKS)
endif()
# Nothing of the compiler's own has to be brought beside the libraries.
add_link_options(-static)

add_library(zel_threadends OBJECT src/host/module/windows/threadends.cpp)
link_libraries($<TARGET_OBJECTS:zel_threadends>)

add_subdirectory(src/host/module)
add_subdirectory(src/host/wmlib)
add_subdirectory(src/host/wmset)
add_subdirectory(src/host/wmjobmgr)
add_subdirectory(src/common)
if(ZEL_UNITY)
  set(CMAKE_UNITY_BUILD ON)
  set(CMAKE_UNITY_BUILD_BATCH_SIZE 12)
  add_compile_options(-Wno-shadow -Wno-subobject-linkage)
endif()
add_subdirectory(src/zelstore)
set(CMAKE_UNITY_BUILD OFF)
set_target_properties(wmLib PROPERTIES PREFIX "")
# Its exports stand in its object, linked or not; so do its parts.
if(NOT store_is_linked)
  set_target_properties(ZELStore PROPERTIES EXCLUDE_FROM_ALL ON)
endif()
add_library(zel_component OBJECT src/zelstore/component.cpp)
target_link_libraries(zel_component PRIVATE zelstore_facade zelstore_diskmonitor)

if(ZEL_TESTS)
  add_subdirectory(tests)
endif()
