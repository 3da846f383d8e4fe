# Cross build for the phone's processor (32-bit ARM, hard float) with Debian's cross compiler,
# against a sysroot of the target's libraries (scripts/armhf-sysroot makes one). Programs that
# CMake or ctest run are started through qemu-arm, which finds the target's loader and
# libraries under the same sysroot.
#   OVBASE_SYSROOT  the sysroot (default: build/sysroot-armhf beside this file's folder)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# GCC notes wherever a type of 8-byte alignment is passed by value that GCC 7.1 changed how
# such arguments are passed; it matters only against code built by an older GCC, and the
# sysroot has none.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

if(NOT OVBASE_SYSROOT)
    get_filename_component(OVBASE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-armhf ABSOLUTE)
endif()
set(OVBASE_SYSROOT ${OVBASE_SYSROOT} CACHE PATH "Sysroot of the 32-bit ARM target")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES OVBASE_SYSROOT)
set(CMAKE_SYSROOT ${OVBASE_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# By its full path: the tests start programs through it with execv, which searches no PATH.
find_program(OVBASE_QEMU_ARM qemu-arm REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${OVBASE_QEMU_ARM} -L ${OVBASE_SYSROOT})
# moc and the other code generators are the host's own Qt tools. The target's Qt was not
# built as a cross Qt, so it is told to look for the host's tools.
execute_process(COMMAND gcc -print-multiarch OUTPUT_VARIABLE OVBASE_HOST_MULTIARCH
                OUTPUT_STRIP_TRAILING_WHITESPACE)
set(QT_HOST_PATH /usr)
set(QT_HOST_PATH_CMAKE_DIR /usr/lib/${OVBASE_HOST_MULTIARCH}/cmake)
set(QT_REQUIRE_HOST_PATH_CHECK ON)
