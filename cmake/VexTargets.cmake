# The only functions the folders' own CMakeLists.txt files need.

# vex_add_folders(<folder>...): enters each folder that has a CMakeLists.txt. A folder that appears later is noticed by
# the next build.
function(vex_add_folders)
    foreach(folder IN LISTS ARGN)
        file(GLOB list CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/CMakeLists.txt)
        if(list)
            add_subdirectory(${folder})
        endif()
    endforeach()
endfunction()

# vex_library(<target> SOURCES <file>... [DEPS <target>...]): the static library of one folder, also known as vex::<x> for
# a target vex_<x>. Includes are written from src/.
function(vex_library target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPS")
    add_library(${target} STATIC ${arg_SOURCES})
    string(REGEX REPLACE "^vex_" "" short ${target})
    add_library(vex::${short} ALIAS ${target})
    target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>)
    target_link_libraries(${target} PUBLIC ${arg_DEPS} PRIVATE $<BUILD_INTERFACE:vex_flags>)
endfunction()

# vex_format(<target> SOURCES <file>... [DEPS <target>...]): a vex_library for a container, which the module links without
# being told its name.
function(vex_format target)
    vex_library(${target} ${ARGN})
    set_property(GLOBAL APPEND PROPERTY VEX_FORMAT_TARGETS ${target})
endfunction()

# vex_formats(<variable>): the targets of all containers in this tree, for the library that holds the factory table.
function(vex_formats variable)
    get_property(targets GLOBAL PROPERTY VEX_FORMAT_TARGETS)
    set(${variable} ${targets} PARENT_SCOPE)
endfunction()

# vex_version_resource(<target> <file name> <VFT_DLL|VFT_APP> <description>): what Windows shows of a binary's version.
# OLESelfRegister tells installers that regsvr32 has a use for a DLL.
function(vex_version_resource target name file_type description)
    set(more)
    if(file_type STREQUAL "VFT_DLL")
        set(more "            VALUE \"OLESelfRegister\", \"\"\n")
    endif()
    configure_file(${PROJECT_SOURCE_DIR}/packaging/version.rc.in ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc @ONLY)
    target_sources(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
endfunction()

# vex_module_library(<target> EXPORTS <function>... DEPS <static library>... [SOURCES <file>...]): the loadable module out
# of static libraries: VEX.ax on Windows, libvex.so elsewhere. The DEPS are taken in whole, and nothing but EXPORTS can be
# seen from outside.
function(vex_module_library target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "EXPORTS;DEPS;SOURCES")
    set(empty ${CMAKE_CURRENT_BINARY_DIR}/${target}.cpp)
    file(CONFIGURE OUTPUT ${empty} CONTENT "// The module's code comes from the libraries it is linked from.\n")
    add_library(${target} SHARED ${empty} ${arg_SOURCES})
    add_library(vex::${target} ALIAS ${target})
    foreach(library IN LISTS arg_DEPS)
        target_link_libraries(${target} PRIVATE $<LINK_LIBRARY:WHOLE_ARCHIVE,${library}>)
    endforeach()
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:vex_flags>)

    if(WIN32)
        list(JOIN arg_EXPORTS " PRIVATE\n    " names)
        set(list ${CMAKE_CURRENT_BINARY_DIR}/${target}.def)
        file(CONFIGURE OUTPUT ${list} CONTENT "LIBRARY VEX.ax\nEXPORTS\n    ${names} PRIVATE\n")
        target_sources(${target} PRIVATE ${list})
        vex_version_resource(${target} VEX.ax VFT_DLL "${PROJECT_DESCRIPTION}")
        # The stdcall suffixes of the 32-bit functions do not show in the exports.
        target_link_options(${target} PRIVATE -Wl,--enable-stdcall-fixup)
        set_target_properties(${target} PROPERTIES PREFIX "" OUTPUT_NAME VEX SUFFIX ".ax"
            RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
    else()
        list(JOIN arg_EXPORTS "; " names)
        set(list ${CMAKE_CURRENT_BINARY_DIR}/${target}.map)
        file(CONFIGURE OUTPUT ${list} CONTENT "{ global: ${names}; local: *; };\n")
        target_link_options(${target} PRIVATE -Wl,--version-script=${list})
        if(NOT VEX_SANITIZE)
            target_link_options(${target} PRIVATE -Wl,--no-undefined)
        endif()
        set_target_properties(${target} PROPERTIES OUTPUT_NAME vex LINK_DEPENDS ${list}
            VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    endif()
    set_property(GLOBAL PROPERTY VEX_MODULE ${target})
endfunction()

# vex_executable(<target> SOURCES <file>... [DEPS <target>...] [OUTPUT_NAME <name>]): a program.
function(vex_executable target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "OUTPUT_NAME" "SOURCES;DEPS")
    add_executable(${target} ${arg_SOURCES})
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR})
    target_link_libraries(${target} PRIVATE ${arg_DEPS} vex_flags)
    if(arg_OUTPUT_NAME)
        set_target_properties(${target} PROPERTIES OUTPUT_NAME ${arg_OUTPUT_NAME})
        if(WIN32)
            vex_version_resource(${target} ${arg_OUTPUT_NAME}.exe VFT_APP "${PROJECT_DESCRIPTION}")
        endif()
    endif()
endfunction()

# Seconds until ctest calls a program hung. Far beyond what any takes: a loaded machine is no failure.
set(VEX_TEST_TIMEOUT 600)
if(VEX_SANITIZE OR VEX_COVERAGE)
    set(VEX_TEST_TIMEOUT 1800)
endif()

# What nearly every test includes, compiled once. An executable, so that its flags are those of the tests.
function(vex_test_headers target)
    if(NOT TARGET vex_test_headers)
        set(empty ${PROJECT_BINARY_DIR}/generated/test_headers.cpp)
        file(CONFIGURE OUTPUT ${empty} CONTENT "int main() {}\n")
        vex_executable(vex_test_headers SOURCES ${empty} DEPS GTest::gmock GTest::gtest)
        target_include_directories(vex_test_headers PRIVATE ${PROJECT_SOURCE_DIR}/tests)
        target_compile_options(vex_test_headers PRIVATE -O0)
        target_precompile_headers(vex_test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h> <algorithm> <array> <functional>
            <memory> <optional> <random> <span> <string> <vector>)
    endif()
    target_compile_options(${target} PRIVATE -O0)
    target_precompile_headers(${target} REUSE_FROM vex_test_headers)
endfunction()

# vex_test(<name> SOURCES <file>... [DEPS <target>...]): a GoogleTest program and its ctest entry. One entry for a whole
# program: starting a process for every case would cost more than most cases do, above all under a sanitizer.
function(vex_test name)
    vex_executable(${name} ${ARGN})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(${name} PRIVATE GTest::gmock GTest::gtest GTest::gtest_main)
    if(VEX_FRESH_BUILD)
        vex_test_headers(${name})
    endif()
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${VEX_TEST_TIMEOUT})
endfunction()

# vex_python_test(<name> SCRIPT <file> [ARGS <argument>...] [PROGRAMS <target>...]): a Python script as a test. It finds
# the command in the environment as VEX_BINARY, the top of the sources as VEX_SOURCE_DIR, and each of PROGRAMS as
# VEX_PROGRAM_<TARGET>.
function(vex_python_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "SCRIPT" "ARGS;PROGRAMS")
    if(NOT TARGET vex_cli OR CMAKE_CROSSCOMPILING)
        return()
    endif()
    get_filename_component(script ${arg_SCRIPT} ABSOLUTE)
    add_test(NAME ${name} COMMAND ${VEX_PYTHON} -B ${script} ${arg_ARGS})
    set(environment VEX_BINARY=$<TARGET_FILE:vex_cli> VEX_SOURCE_DIR=${PROJECT_SOURCE_DIR}
        VEX_VERSION=${PROJECT_VERSION})
    foreach(program IN LISTS arg_PROGRAMS)
        string(TOUPPER ${program} upper)
        list(APPEND environment VEX_PROGRAM_${upper}=$<TARGET_FILE:${program}>)
    endforeach()
    set_tests_properties(${name} PROPERTIES TIMEOUT ${VEX_TEST_TIMEOUT} ENVIRONMENT "${environment}")
endfunction()

# vex_fuzzer(<name> SOURCES <file>... [DEPS <target>...] [SEEDS <file>...]): a libFuzzer target, from a source that has
# LLVMFuzzerTestOneInput. SEEDS define fuzz::WriteSeeds for a program <name>_seeds that writes files into the folder named
# as its argument. Without VEX_FUZZ the same source becomes a test that replays fuzz/regressions/<name>/*.
function(vex_fuzzer name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPS;SEEDS")
    if(VEX_FUZZ)
        if(NOT TARGET fuzzers)
            add_custom_target(fuzzers)
        endif()
        add_dependencies(fuzzers ${name})
        vex_executable(${name} SOURCES ${arg_SOURCES} DEPS ${arg_DEPS} vex_test_files)
        target_link_options(${name} PRIVATE -fsanitize=fuzzer)
        set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/fuzzers)
        if(arg_SEEDS)
            vex_executable(${name}_seeds SOURCES ${arg_SEEDS} ${PROJECT_SOURCE_DIR}/fuzz/seeds_main.cpp
                DEPS ${arg_DEPS} vex_test_files)
            set_target_properties(${name}_seeds PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/seeds)
            add_dependencies(fuzzers ${name}_seeds)
        endif()
    else()
        vex_executable(${name}_replay SOURCES ${arg_SOURCES} ${PROJECT_SOURCE_DIR}/fuzz/replay_main.cpp
            DEPS ${arg_DEPS} vex_test_files)
        add_test(NAME ${name}_replay COMMAND ${name}_replay ${PROJECT_SOURCE_DIR}/fuzz/regressions/${name})
        set_tests_properties(${name}_replay PROPERTIES TIMEOUT ${VEX_TEST_TIMEOUT})
    endif()
endfunction()

# vex_handler_fuzzer(<format> READING <class>): the target <format>_handler_fuzzer of a read handler, opened as its tests do
# with the class in tests/<format>/<format>_reading.h.
function(vex_handler_fuzzer format)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "READING" "")
    vex_fuzzer(${format}_handler_fuzzer
        SOURCES ${PROJECT_SOURCE_DIR}/fuzz/handler_fuzzer.cpp
        DEPS vex_${format}
        SEEDS ${format}_handler_seeds.cpp)
    foreach(target ${format}_handler_fuzzer ${format}_handler_fuzzer_replay)
        if(TARGET ${target})
            target_compile_definitions(${target} PRIVATE
                VEX_READING=${arg_READING} VEX_READING_HEADER="${format}/${format}_reading.h")
        endif()
    endforeach()
endfunction()

# vex_bench(<name> SOURCES <file>... [DEPS <target>...]): a benchmark program, never a test.
function(vex_bench name)
    vex_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE vex_test_files benchmark::benchmark)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bench)
endfunction()
