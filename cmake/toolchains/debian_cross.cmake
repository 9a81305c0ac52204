# What Debian's cross compilers have in common. The toolchain file that includes this sets
# `architecture`, Debian's name of it; `triple`, the compilers' name of it; and `emulator`.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triple}-gcc)
set(CMAKE_CXX_COMPILER ${triple}-g++)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_LIBRARY_ARCHITECTURE ${triple})

# Where scripts/check unpacks the packages that the tool needs.
set(packages "${CMAKE_CURRENT_LIST_DIR}/../../build/packages/${architecture}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${packages}/usr/lib/${triple}")
set(CMAKE_CROSSCOMPILING_EMULATOR
    ${emulator} -L /usr/${triple} -E LD_LIBRARY_PATH=${packages}/usr/lib/${triple})
set(CMAKE_FIND_ROOT_PATH "${packages}" /usr/${triple})
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} "${packages}/usr/lib/${triple}/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${packages}")
