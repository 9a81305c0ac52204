# The kernels that the target processor can have beside the portable ones, each file with its own flags.

include(CheckCXXSourceCompiles)
option(VELORA_PORTABLE_ONLY "Build no kernels but the portable ones" OFF)

# Sums in the recursive filters are ordered so that the value that comes last is added last; GCC would order them anew.
set(VELORA_KEEP_SUMS $<$<CXX_COMPILER_ID:GNU>:-fno-tree-reassoc>)
set(VELORA_KERNEL_SOURCES)
set(VELORA_LEVEL_KERNEL_SOURCES) # those that the Stream has in its own library
set(VELORA_KERNEL_DEFINITIONS)
check_cxx_source_compiles("
#if !defined(__x86_64__) && !defined(__i386__)
#error
#endif
int main() {}" VELORA_TARGET_X86)
check_cxx_source_compiles("
#if !defined(__arm__)
#error
#endif
int main() {}" VELORA_TARGET_ARM32)
# 64-bit ARM always has NEON. In 32 bits it must be asked for, and whatever runs this has it. Big-endian ARM takes
# the portable kernels.
set(VELORA_NEON_OPTIONS)
if(VELORA_TARGET_ARM32)
    set(VELORA_NEON_OPTIONS -mfpu=neon)
endif()
set(CMAKE_REQUIRED_FLAGS "${VELORA_NEON_OPTIONS}")
check_cxx_source_compiles("#include <arm_neon.h>
#if __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error
#endif
int main() { return vgetq_lane_s32(vdupq_n_s32(0), 0); }" VELORA_TARGET_NEON)
unset(CMAKE_REQUIRED_FLAGS)

# velora_add_kernels(NAME OPTION...) adds what is compiled for one instruction set.
macro(velora_add_kernels name)
    list(APPEND VELORA_KERNEL_SOURCES kernels/kernels_${name}.cpp)
    list(APPEND VELORA_LEVEL_KERNEL_SOURCES kernels/level_${name}.cpp)
    set_source_files_properties(kernels/kernels_${name}.cpp kernels/level_${name}.cpp PROPERTIES
        COMPILE_OPTIONS "${ARGN}")
endmacro()

if(VELORA_TARGET_X86 AND NOT VELORA_PORTABLE_ONLY)
    velora_add_kernels(sse41 -msse4.1 ${VELORA_KEEP_SUMS})
    velora_add_kernels(avx2 -mavx2 ${VELORA_KEEP_SUMS})
    set(VELORA_KERNEL_DEFINITIONS VELORA_KERNELS_X86)
elseif(VELORA_TARGET_NEON AND NOT VELORA_PORTABLE_ONLY)
    velora_add_kernels(neon ${VELORA_NEON_OPTIONS})
    set(VELORA_KERNEL_DEFINITIONS VELORA_KERNELS_NEON)
endif()
