# 32-bit ARM with Debian's cross compiler; the libraries come from the folder that cmake/arm-sysroot makes, and programs
# run through QEMU's user-mode emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

cmake_path(SET CMAKE_SYSROOT NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../build/arm-sysroot)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Without 64-bit times, messages would carry no date after January 2038, and a file dated later could not be opened.
# It can be chosen here because no operation of the device's libraries (src/platform/) takes or gives a time, a file
# offset or a file status; it needs glibc 2.34 or later.
set(times "-D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64")
set(CMAKE_C_FLAGS_INIT "${times}")
# The compiler's remark that GCC 7 passes some types otherwise than GCC 6 means nothing to code built with one compiler.
set(CMAKE_CXX_FLAGS_INIT "${times} -Wno-psabi")

find_program(QEMU_ARM qemu-arm-static REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${QEMU_ARM} -L ${CMAKE_SYSROOT})
