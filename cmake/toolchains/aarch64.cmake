# Debian's cross compiler g++-aarch64-linux-gnu; test programs run under qemu-aarch64 (package qemu-user).

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# Where scripts/check unpacks the packages that the tool needs.
set(packages "${CMAKE_CURRENT_LIST_DIR}/../../build/packages/arm64")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${packages}/usr/lib/aarch64-linux-gnu")
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-aarch64 -L /usr/aarch64-linux-gnu -E LD_LIBRARY_PATH=${packages}/usr/lib/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH "${packages}" /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
