# What the toolchains for both word sizes share. VEX_MINGW_TARGET is the name of the cross compilers' target.
set(CMAKE_SYSTEM_NAME Windows)

set(CMAKE_C_COMPILER ${VEX_MINGW_TARGET}-gcc-win32)
set(CMAKE_CXX_COMPILER ${VEX_MINGW_TARGET}-g++-win32)
set(CMAKE_RC_COMPILER ${VEX_MINGW_TARGET}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${VEX_MINGW_TARGET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The compiler's runtime goes into the binaries: a Windows machine has none of it.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
