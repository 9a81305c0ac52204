# Debian's cross compiler g++-arm-linux-gnueabihf; test programs run under qemu-arm (package qemu-user).

set(CMAKE_SYSTEM_PROCESSOR arm)
set(architecture armhf)
set(triple arm-linux-gnueabihf)
set(emulator qemu-arm)
include("${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake")
