# The libraries the tree stands on, under the names their own packages use, for a native and for a cross build alike.

set(ZLIB_USE_STATIC_LIBS ${WIN32})
find_package(ZLIB REQUIRED)

# vex_codec_library(<target> <library> <header> <package>): a C library as an imported target. A toolchain sets VEX_LIBS
# to the directory that scripts/build-libs filled for its target; without one the library is the build machine's own.
function(vex_codec_library target library header package)
    set(where)
    set(from "install the Debian package ${package}")
    if(VEX_LIBS)
        set(where PATHS ${VEX_LIBS} NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
        cmake_path(GET VEX_LIBS FILENAME name)
        set(from "run scripts/build-libs ${name}")
    endif()
    find_library(VEX_${library}_LIBRARY ${library} ${where} PATH_SUFFIXES lib)
    find_path(VEX_${library}_INCLUDE ${header} ${where} PATH_SUFFIXES include)
    if(NOT VEX_${library}_LIBRARY OR NOT VEX_${library}_INCLUDE)
        message(FATAL_ERROR "lib${library} was not found: ${from}")
    endif()
    add_library(${target} UNKNOWN IMPORTED GLOBAL)
    set_target_properties(${target} PROPERTIES IMPORTED_LOCATION ${VEX_${library}_LIBRARY})
    target_include_directories(${target} SYSTEM INTERFACE ${VEX_${library}_INCLUDE})
endfunction()

vex_codec_library(Ogg::ogg ogg ogg/ogg.h libogg-dev)
vex_codec_library(Vorbis::vorbis vorbis vorbis/codec.h libvorbis-dev)
target_link_libraries(Vorbis::vorbis INTERFACE Ogg::ogg $<$<NOT:$<BOOL:${WIN32}>>:m>)

# libcurl is loaded at run time (src/platform/posix/curl_library.h), so its headers are enough. A toolchain sets
# VEX_WITHOUT_HTTP when its target has none.
if(NOT WIN32 AND NOT VEX_WITHOUT_HTTP)
    find_path(VEX_CURL_INCLUDE curl/curl.h)
    if(NOT VEX_CURL_INCLUDE)
        message(FATAL_ERROR "libcurl was not found: install the Debian package libcurl4-openssl-dev")
    endif()
    add_library(vex_curl_headers INTERFACE IMPORTED GLOBAL)
    target_include_directories(vex_curl_headers SYSTEM INTERFACE ${VEX_CURL_INCLUDE})
endif()

# A header-only library of the build machine serves a foreign target as it is, but its directory must not be searched as
# a whole: the build machine's C headers lie there too. So a foreign build sees it through a link in the build tree.
function(vex_header_only package target header_directory)
    if(NOT CMAKE_CROSSCOMPILING)
        find_package(${package} REQUIRED)
        return()
    endif()
    find_path(VEX_${package}_INCLUDE ${header_directory} PATHS /usr/include /usr/local/include
        NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/include/${package})
    file(CREATE_LINK ${VEX_${package}_INCLUDE}/${header_directory}
        ${PROJECT_BINARY_DIR}/include/${package}/${header_directory} SYMBOLIC)
    add_library(${target} INTERFACE IMPORTED GLOBAL)
    target_include_directories(${target} SYSTEM INTERFACE ${PROJECT_BINARY_DIR}/include/${package})
endfunction()

vex_header_only(CLI11 CLI11::CLI11 CLI)
vex_header_only(nlohmann_json nlohmann_json::nlohmann_json nlohmann)

if(VEX_TESTS OR VEX_FUZZ)
    # The packaged archive is for the build machine's own architecture; any other target compiles the packaged sources.
    if(CMAKE_CROSSCOMPILING OR VEX_GTEST_FROM_SOURCE)
        set(CMAKE_POLICY_DEFAULT_CMP0077 NEW)
        set(INSTALL_GTEST OFF)
        set(gtest_force_shared_crt ON)
        set(gtest_disable_pthreads ${WIN32})
        add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
        foreach(name gtest gmock gtest_main gmock_main)
            if(NOT TARGET GTest::${name})
                add_library(GTest::${name} ALIAS ${name})
            endif()
        endforeach()
        if(WIN32)
            # As an option: it has to come before the packaged headers' own directory.
            target_compile_options(gtest PUBLIC "SHELL:-iquote ${PROJECT_SOURCE_DIR}/tests/windows/gtest_port")
        endif()
    else()
        find_package(GTest REQUIRED)
    endif()
endif()

if(VEX_BENCH)
    find_package(benchmark REQUIRED)
endif()

# The Debian packages of the Python tests belong to the system's interpreter, whatever else comes first on PATH.
find_program(VEX_PYTHON python3 PATHS /usr/bin NO_DEFAULT_PATH)
find_program(VEX_PYTHON python3)
