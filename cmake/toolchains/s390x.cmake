# Debian's cross compiler g++-s390x-linux-gnu; test programs run under qemu-s390x (package qemu-user).

set(CMAKE_SYSTEM_PROCESSOR s390x)
set(architecture s390x)
set(triple s390x-linux-gnu)
set(emulator qemu-s390x)
include("${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake")
