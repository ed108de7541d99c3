# The word size of the Windows product on the build machine, so that faults of size and overflow show in the native suite.
set(CMAKE_C_FLAGS_INIT "-m32")
set(CMAKE_CXX_FLAGS_INIT "-m32")
set(CMAKE_ASM_FLAGS_INIT "-m32")
set(CMAKE_LIBRARY_PATH /usr/lib32)
set(VEX_GTEST_FROM_SOURCE ON)
set(VEX_LIBS ${CMAKE_CURRENT_LIST_DIR}/../../build/libs/linux-x86)
# Debian has no 32-bit libcurl beside the build machine's own.
set(VEX_WITHOUT_HTTP ON)
