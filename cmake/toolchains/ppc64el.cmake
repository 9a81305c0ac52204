# Debian's cross compiler g++-powerpc64le-linux-gnu; test programs run under qemu-ppc64le (package qemu-user).

set(CMAKE_SYSTEM_PROCESSOR ppc64le)
set(architecture ppc64el)
set(triple powerpc64le-linux-gnu)
set(emulator qemu-ppc64le)
include("${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake")
