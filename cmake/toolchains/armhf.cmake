# 32-bit ARM, hard float (Debian armhf), against the packages that scripts/arm-sysroot.sh unpacks.
# Programs run under qemu's user emulation. LUMTAR_SYSROOT: the folder of those packages.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(triplet arm-linux-gnueabihf)

if(NOT LUMTAR_SYSROOT)
  set(LUMTAR_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot-armhf)
endif()
get_filename_component(LUMTAR_SYSROOT ${LUMTAR_SYSROOT} ABSOLUTE)
set(LUMTAR_SYSROOT ${LUMTAR_SYSROOT} CACHE PATH "Unpacked packages of the target")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES LUMTAR_SYSROOT)

set(CMAKE_SYSROOT ${LUMTAR_SYSROOT})
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${LUMTAR_SYSROOT})

set(CMAKE_FIND_ROOT_PATH ${LUMTAR_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# moc and its kin run here, so they come from this machine's Qt.
execute_process(COMMAND g++ -dumpmachine OUTPUT_VARIABLE host OUTPUT_STRIP_TRAILING_WHITESPACE)
set(QT_HOST_PATH /usr)
set(QT_HOST_PATH_CMAKE_DIR /usr/lib/${host}/cmake)
