# The word size of the Windows product on the build machine, so that faults of size and overflow show in the native suite.
set(CMAKE_CXX_FLAGS_INIT "-m32")
set(CMAKE_ASM_FLAGS_INIT "-m32")
set(CMAKE_LIBRARY_PATH /usr/lib32)
set(VEX_GTEST_FROM_SOURCE ON)
