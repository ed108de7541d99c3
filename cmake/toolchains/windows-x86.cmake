set(CMAKE_SYSTEM_PROCESSOR i686)
set(VEX_MINGW_TARGET i686-w64-mingw32)
set(VEX_LIBS ${CMAKE_CURRENT_LIST_DIR}/../../build/libs/windows-x86)
include(${CMAKE_CURRENT_LIST_DIR}/windows.cmake)
