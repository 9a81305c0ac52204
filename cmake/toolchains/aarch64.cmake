# Debian's cross compiler g++-aarch64-linux-gnu; test programs run under qemu-aarch64 (package qemu-user).

set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(architecture arm64)
set(triple aarch64-linux-gnu)
set(emulator qemu-aarch64)
include("${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake")
