# Helper functions shared by every folder of the project.  Use them instead of
# the bare CMake commands so that warnings, sanitizers and output folders stay
# the same everywhere.

set(ZQ_WARNINGS -Wall -Wextra)
set(ZQ_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)

# Our fault guard installs its own handlers; AddressSanitizer must leave them alone.
set(ZQ_TEST_ENVIRONMENT
  "ASAN_OPTIONS=handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:allow_user_segv_handler=1:detect_leaks=1"
  "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1")

function(zq_add_subdirectory_if_present dir)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/CMakeLists.txt)
    add_subdirectory(${dir})
  endif()
endfunction()

# Adds every sub-folder of the current folder that has a CMakeLists.txt, in
# name order: each is one area of its own (tests/<area>, bench/<area>, tools/<tool>).
function(zq_add_child_directories)
  file(GLOB children LIST_DIRECTORIES true CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*)
  list(SORT children)
  foreach(child ${children})
    if(IS_DIRECTORY ${child} AND EXISTS ${child}/CMakeLists.txt)
      add_subdirectory(${child})
    endif()
  endforeach()
endfunction()

# Warnings, include root, hidden visibility and (optionally) sanitizers for
# code that is our own.  Plug-ins we build stand for foreign code and do not
# get sanitizers: they fault on purpose.
function(zq_target_defaults target)
  target_compile_options(${target} PRIVATE ${ZQ_WARNINGS})
  # COM objects are allocated zero-filled and rely on fields the constructor
  # leaves alone reading as zero; GCC would otherwise drop the clearing as a
  # store before the object's lifetime.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -flifetime-dse=1)
  endif()
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/zqvstwrap>)
  set_target_properties(${target} PROPERTIES
    CXX_VISIBILITY_PRESET hidden
    C_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  if(ZQ_SANITIZE)
    target_compile_options(${target} PRIVATE ${ZQ_SANITIZER_FLAGS})
    target_link_options(${target} PRIVATE ${ZQ_SANITIZER_FLAGS})
  endif()
endfunction()

# zq_add_library(name [STATIC|SHARED|INTERFACE] SOURCES ... LIBS ...)
function(zq_add_library name)
  cmake_parse_arguments(A "STATIC;SHARED;INTERFACE" "" "SOURCES;LIBS" ${ARGN})
  if(A_INTERFACE)
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
    if(A_LIBS)
      target_link_libraries(${name} INTERFACE ${A_LIBS})
    endif()
    return()
  endif()
  if(A_SHARED)
    add_library(${name} SHARED ${A_SOURCES})
  else()
    add_library(${name} STATIC ${A_SOURCES})
  endif()
  zq_target_defaults(${name})
  if(A_LIBS)
    target_link_libraries(${name} PUBLIC ${A_LIBS})
  endif()
endfunction()

# zq_add_executable(name SOURCES ... LIBS ...)
function(zq_add_executable name)
  cmake_parse_arguments(A "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  zq_target_defaults(${name})
  target_compile_definitions(${name} PRIVATE ZQ_PLUGIN_DIR="${ZQ_PLUGIN_DIR}")
  if(A_LIBS)
    target_link_libraries(${name} PRIVATE ${A_LIBS})
  endif()
endfunction()

# zq_add_test(name SOURCES ... LIBS ... [TIMEOUT seconds])
# One GoogleTest executable; every TEST is its own ctest case.  Tests find the
# plug-ins we build through the ZQ_PLUGIN_DIR definition, and every case (one
# process each) gets private settings and XDG folders before main runs
# (tests/support/isolated_settings.cpp).
function(zq_add_test name)
  cmake_parse_arguments(A "" "TIMEOUT" "SOURCES;LIBS" ${ARGN})
  if(NOT A_TIMEOUT)
    set(A_TIMEOUT 120)
  endif()
  add_executable(${name} ${A_SOURCES} ${PROJECT_SOURCE_DIR}/tests/support/isolated_settings.cpp)
  zq_target_defaults(${name})
  target_compile_definitions(${name} PRIVATE
    ZQ_PLUGIN_DIR="${ZQ_PLUGIN_DIR}"
    ZQ_TEST_SOURCE_DIR="${CMAKE_CURRENT_SOURCE_DIR}"
    ZQ_BINARY_DIR="${CMAKE_BINARY_DIR}")
  target_link_libraries(${name} PRIVATE ${A_LIBS} GTest::gtest GTest::gtest_main GTest::gmock)
  add_dependencies(${name} zq_plugins)
  gtest_discover_tests(${name}
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${A_TIMEOUT} ENVIRONMENT "${ZQ_TEST_ENVIRONMENT}")
endfunction()

# zq_add_plugin(name SOURCES ... [LIBS ...])
# A VST 2.x module: a shared object without the "lib" prefix in ZQ_PLUGIN_DIR.
# Built without sanitizers: it stands for foreign code.
function(zq_add_plugin name)
  cmake_parse_arguments(A "" "" "SOURCES;LIBS;DEFINES" ${ARGN})
  add_library(${name} MODULE ${A_SOURCES})
  target_compile_options(${name} PRIVATE ${ZQ_WARNINGS})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  set_target_properties(${name} PROPERTIES
    PREFIX ""
    LIBRARY_OUTPUT_DIRECTORY ${ZQ_PLUGIN_DIR}
    CXX_VISIBILITY_PRESET hidden
    C_VISIBILITY_PRESET hidden)
  if(A_DEFINES)
    target_compile_definitions(${name} PRIVATE ${A_DEFINES})
  endif()
  if(A_LIBS)
    target_link_libraries(${name} PRIVATE ${A_LIBS})
  endif()
  add_dependencies(zq_plugins ${name})
endfunction()

# zq_add_benchmark(name SOURCES ... LIBS ...)
function(zq_add_benchmark name)
  cmake_parse_arguments(A "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  zq_target_defaults(${name})
  target_compile_definitions(${name} PRIVATE ZQ_PLUGIN_DIR="${ZQ_PLUGIN_DIR}")
  target_link_libraries(${name} PRIVATE ${A_LIBS} benchmark::benchmark)
  add_dependencies(${name} zq_plugins)
endfunction()
