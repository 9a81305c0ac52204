# Debian's cross compiler g++-i686-linux-gnu; test programs run under qemu-i386 (package qemu-user).

set(CMAKE_SYSTEM_PROCESSOR i686)
set(architecture i386)
set(triple i686-linux-gnu)
set(emulator qemu-i386)
include("${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake")
