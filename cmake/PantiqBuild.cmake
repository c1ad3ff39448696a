# Flags and helpers that every room shares.
include(GNUInstallDirs)
include(PantiqInstall)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
# Modules (libpantiq-gst.so and its kin) are looked for here by programs that run from the build tree.
set(PANTIQ_MODULE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib/pantiq")

find_package(Threads REQUIRED)

# pq_need(PNG libpng-dev PANTIQ_PICTURES): find_package, or one line that says what to install or which option to turn off.
macro(pq_need package debian option)
  find_package(${package} QUIET)
  if(NOT ${package}_FOUND)
    message(FATAL_ERROR "${package} was not found: install ${debian}, or configure with -D${option}=OFF")
  endif()
endmacro()

add_library(pantiq_flags INTERFACE)
target_compile_options(pantiq_flags INTERFACE -Wall -Wextra -ffp-contract=off
  $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-subobject-linkage>  # rooms are compiled as one source
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)  # gcc 12 is wrong about strings and std::function
if(PANTIQ_SANITIZE STREQUAL "address")
  target_compile_options(pantiq_flags INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_link_options(pantiq_flags INTERFACE -fsanitize=address,undefined)
elseif(PANTIQ_SANITIZE STREQUAL "thread")
  target_compile_options(pantiq_flags INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(pantiq_flags INTERFACE -fsanitize=thread)
elseif(PANTIQ_SANITIZE STREQUAL "fuzzer")  # clang: as address, and every branch counted for a fuzzer
  target_compile_options(pantiq_flags INTERFACE -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined
    -fno-omit-frame-pointer)
  target_link_options(pantiq_flags INTERFACE -fsanitize=address,undefined)
elseif(PANTIQ_SANITIZE)
  message(FATAL_ERROR "PANTIQ_SANITIZE is '${PANTIQ_SANITIZE}'; expected address, thread, fuzzer or nothing")
endif()

# Headers that nearly every source reads; a target whose sources all go into one joined source reads them once anyway.
function(pq_precompile target)
  get_target_property(sources ${target} SOURCES)
  list(LENGTH sources count)
  if(ARGN AND (NOT CMAKE_UNITY_BUILD OR count GREATER 8))
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()

# pq_room(core SOURCES PQGraph.cpp ... USES host kernels): the library of one room, target pantiq::core.
# PRECOMPILE names a header that nearly every source reads; the debug preset does without, so that a source which lacks an
# include shows.
function(pq_room room)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES;PRECOMPILE" ${ARGN})
  add_library(pantiq_${room} ${ARG_SOURCES})
  add_library(pantiq::${room} ALIAS pantiq_${room})
  set_target_properties(pantiq_${room} PROPERTIES EXPORT_NAME ${room})
  target_include_directories(pantiq_${room} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_compile_features(pantiq_${room} PUBLIC cxx_std_20)
  target_link_libraries(pantiq_${room} PRIVATE $<BUILD_INTERFACE:pantiq_flags> PUBLIC Threads::Threads)
  foreach(used IN LISTS ARG_USES)
    target_link_libraries(pantiq_${room} PUBLIC pantiq::${used})
  endforeach()
  pq_precompile(pantiq_${room} ${ARG_PRECOMPILE})
  pq_install_room(${room} ${ARG_USES})
endfunction()

# pq_test(core SOURCES PQPins_test.cpp ... USES core): one GoogleTest program a room, every case a test of CTest. Test code
# itself is compiled for a short build, not for speed.
function(pq_test room)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;USES;PRECOMPILE" ${ARGN})
  add_executable(test_${room} ${ARG_SOURCES})
  target_link_libraries(test_${room} PRIVATE pantiq_flags GTest::gtest GTest::gtest_main)
  target_include_directories(test_${room} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_options(test_${room} PRIVATE $<$<NOT:$<CONFIG:Debug>>:-O1>
    $<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds>
    $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow>)  # gcc 12 is wrong about strings at -O1
  pq_precompile(test_${room} <gtest/gtest.h> ${ARG_PRECOMPILE})
  foreach(used IN LISTS ARG_USES)
    target_link_libraries(test_${room} PRIVATE pantiq::${used})
  endforeach()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT ${ARG_TIMEOUT})
  endif()
  gtest_discover_tests(test_${room} TEST_PREFIX "${room}/" DISCOVERY_TIMEOUT 120 PROPERTIES LABELS ${room} TIMEOUT 900)
endfunction()
