set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(VEX_MINGW_TARGET x86_64-w64-mingw32)
set(VEX_LIBS ${CMAKE_CURRENT_LIST_DIR}/../../build/libs/windows-x64)
include(${CMAKE_CURRENT_LIST_DIR}/windows.cmake)
