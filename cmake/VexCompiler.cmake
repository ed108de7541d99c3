# One interface target carries the warnings, the sanitizers and the platform's definitions; every target of ours links it.

add_library(vex_flags INTERFACE)

target_compile_options(vex_flags INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall;-Wextra;-Wconversion;-Wshadow;-Werror>
    $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wthread-safety>
    # g++ 12 reports overlapping copies inside std::string's operator+ that cannot happen (GCC bug 105329).
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict>)

if(WIN32)
    # Windows 7 is the oldest system served. UNICODE stays undefined: the plain names are the ANSI ones here.
    target_compile_definitions(vex_flags INTERFACE WINVER=0x0601 _WIN32_WINNT=0x0601 NOMINMAX)
    target_link_options(vex_flags INTERFACE $<$<CONFIG:Release>:-s>)
else()
    # The 32-bit build reads files beyond 2 GiB as well.
    target_compile_definitions(vex_flags INTERFACE _FILE_OFFSET_BITS=64)
    set(THREADS_PREFER_PTHREAD_FLAG ON)
    find_package(Threads REQUIRED)
    target_link_libraries(vex_flags INTERFACE Threads::Threads)
endif()

# Bounds checks of the standard library, everywhere but in what is shipped.
target_compile_definitions(vex_flags INTERFACE $<$<NOT:$<CONFIG:Release>>:_GLIBCXX_ASSERTIONS>)

if(VEX_TRACE)
    target_compile_definitions(vex_flags INTERFACE VEX_TRACE)
endif()

if(VEX_SANITIZE)
    target_compile_options(vex_flags INTERFACE
        -fsanitize=${VEX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(vex_flags INTERFACE -fsanitize=${VEX_SANITIZE})
endif()

if(VEX_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "VEX_FUZZ needs clang: configure with --preset fuzz")
    endif()
    target_compile_options(vex_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

if(VEX_COVERAGE)
    target_compile_options(vex_flags INTERFACE --coverage -fprofile-abs-path)
    target_link_options(vex_flags INTERFACE --coverage)
endif()
