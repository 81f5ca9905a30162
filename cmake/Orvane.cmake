# Compiler settings and the three helpers that every folder's CMakeLists.txt uses.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_DEBUG "-O1 -g")

find_package(Threads REQUIRED)

add_library(orvane_options INTERFACE)
target_include_directories(orvane_options INTERFACE "${PROJECT_SOURCE_DIR}/src")
# Error bounds are derived for the roundings that are written, so the compiler may not fuse any.
target_compile_options(orvane_options INTERFACE -Wall -Wextra -Wshadow -ffp-contract=off)
if(ORVANE_WERROR)
  target_compile_options(orvane_options INTERFACE -Werror)
endif()
if(ORVANE_SANITIZE)
  # Lines are all that a report needs; what -g adds doubles the time that the kernels take to compile.
  # GCC takes initialized objects for uninitialized behind a sanitizer's code, within <regex> and <optional> too.
  target_compile_options(orvane_options INTERFACE -fsanitize=${ORVANE_SANITIZE} -fno-omit-frame-pointer
                         -fno-sanitize-recover=all -g1 $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(orvane_options INTERFACE -fsanitize=${ORVANE_SANITIZE})
endif()
if(ORVANE_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "ORVANE_FUZZ needs clang, whose libFuzzer it builds for")
  endif()
  target_compile_options(orvane_options INTERFACE -fsanitize=fuzzer-no-link)
  target_link_options(orvane_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
target_link_libraries(orvane_options INTERFACE Threads::Threads)

# orvane_folder([USES FOLDER...] [EXCEPT SOURCE...]): the target of the folder of src/ that calls it, named after it
# (orvane_words, orvane_transforms_c17), of every source there but those of EXCEPT. Its files may include those of the
# folders in USES and what those may include; tools/check_includes.py holds them to it.
function(orvane_folder)
  cmake_parse_arguments(ARG "" "" "USES;EXCEPT" ${ARGN})
  cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY "${PROJECT_SOURCE_DIR}/src" OUTPUT_VARIABLE folder)
  string(REPLACE "/" "_" name "${folder}")
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  list(TRANSFORM ARG_EXCEPT PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/")
  if(ARG_EXCEPT)
    list(REMOVE_ITEM sources ${ARG_EXCEPT})
  endif()
  string(REPLACE "/" "_" libraries "${ARG_USES}")
  list(TRANSFORM libraries PREPEND "orvane_")
  if(sources)
    add_library(orvane_${name} STATIC ${sources})
    target_link_libraries(orvane_${name} PUBLIC orvane_options ${libraries})
  else()
    add_library(orvane_${name} INTERFACE)
    target_link_libraries(orvane_${name} INTERFACE orvane_options ${libraries})
  endif()
endfunction()

# Targets that build all tests with a label: `unit` in seconds, under every sanitizer but the thread one; `threads` also
# under that one; `slow` and `disk` whole runs; `sweep` those that draw random words, which tools/sweep.py runs with fresh seeds.
foreach(label unit threads slow disk sweep)
  add_custom_target(${label}_tests)
endforeach()

# orvane_test(NAME SOURCES ... LIBS ... [LABEL label...] [PLAIN_MAIN]): one GoogleTest program.
# Its main registers algorithms, frameworks, allocators and exception types, unless PLAIN_MAIN
# is given (tests of the lowest folders, which cannot link what stands above them).
# A program that declares a `Random` has the label `sweep` besides.
# A test that takes longer than its seconds has failed: a deadlock must not cost a whole run of CI.
function(orvane_test name)
  cmake_parse_arguments(ARG "PLAIN_MAIN" "" "SOURCES;LIBS;LABEL" ${ARGN})
  if(NOT ARG_LABEL)
    set(ARG_LABEL unit)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
  if(ARG_PLAIN_MAIN)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest_main GTest::gtest)
  else()
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} orvane_test_main GTest::gtest)
  endif()
  foreach(source IN LISTS ARG_SOURCES)
    file(STRINGS "${source}" draws REGEX "(^|[^A-Za-z_])Random [a-z]" LIMIT_COUNT 1)
    if(draws)
      list(APPEND ARG_LABEL sweep)
      break()
    endif()
  endforeach()
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABEL}" TIMEOUT 600)
  foreach(label IN LISTS ARG_LABEL)
    add_dependencies(${label}_tests ${name})
  endforeach()
  foreach(source IN LISTS ARG_SOURCES)
    set_property(GLOBAL APPEND PROPERTY ORVANE_TEST_SOURCES "${CMAKE_CURRENT_SOURCE_DIR}/${source}")
  endforeach()
endfunction()

# orvane_script_test(NAME [LABEL label] COMMAND SCRIPT ARGUMENT...): a Python script of the calling folder as a test of the
# program. The sources, its texts and what is installed are the same in every build, and the sanitizers slow its runs
# down, so the release build runs them: that is what is shipped. Status 77 says that a tool is missing here.
function(orvane_script_test name)
  cmake_parse_arguments(ARG "" "LABEL" "COMMAND" ${ARGN})
  if(ORVANE_SANITIZE)
    return()
  endif()
  if(NOT ARG_LABEL)
    set(ARG_LABEL slow)
  endif()
  list(POP_FRONT ARG_COMMAND script)
  cmake_path(ABSOLUTE_PATH script BASE_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}")
  add_test(NAME ${name} COMMAND ${Python3_EXECUTABLE} "${script}" ${ARG_COMMAND})
  set_tests_properties(${name} PROPERTIES LABELS ${ARG_LABEL} SKIP_RETURN_CODE 77 TIMEOUT 900)
endfunction()

# orvane_bench(NAME SOURCES ... LIBS ...): one measuring program; built in every preset so that it keeps compiling.
function(orvane_bench name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/bench")
  target_link_libraries(${name} PRIVATE ${ARG_LIBS})
endfunction()

# Fails when a *_test.cpp lies in tests/ and no target compiles it.
function(orvane_check_test_sources)
  file(GLOB_RECURSE found CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/tests/*_test.cpp")
  get_property(listed GLOBAL PROPERTY ORVANE_TEST_SOURCES)
  foreach(source IN LISTS found)
    if(NOT source IN_LIST listed)
      message(FATAL_ERROR "test file belongs to no target: ${source}")
    endif()
  endforeach()
endfunction()
