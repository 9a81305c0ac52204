# Debian's cross compiler g++-riscv64-linux-gnu; test programs run under qemu-riscv64 (package qemu-user).

set(CMAKE_SYSTEM_PROCESSOR riscv64)
set(architecture riscv64)
set(triple riscv64-linux-gnu)
set(emulator qemu-riscv64)
include("${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake")
