# Debian's cross compiler g++-arm-linux-gnueabihf; test programs run under qemu-arm (package qemu-user).

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

# Where scripts/check unpacks the packages that the tool needs.
set(packages "${CMAKE_CURRENT_LIST_DIR}/../../build/packages/armhf")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${packages}/usr/lib/arm-linux-gnueabihf")
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH=${packages}/usr/lib/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH "${packages}" /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
