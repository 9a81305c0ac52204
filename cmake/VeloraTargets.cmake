# How every target of this project is compiled, and how a library comes as a shared and a static one.

include(CheckCXXSourceCompiles)
check_cxx_source_compiles("
#if !defined(__i386__)
#error
#endif
int main() {}" VELORA_TARGET_I386)

# What floating-point arithmetic takes to round the same on every machine, in programs that include the Stream as
# well: a fused multiply-add rounds once where we round twice, and the x87 unit rounds to more bits than a type has.
set(VELORA_ARITHMETIC_OPTIONS -ffp-contract=off)
if(VELORA_TARGET_I386)
    list(APPEND VELORA_ARITHMETIC_OPTIONS -msse2 -mfpmath=sse)
endif()

add_library(velora_options INTERFACE)
target_compile_features(velora_options INTERFACE cxx_std_20)
target_compile_options(velora_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    $<$<BOOL:${VELORA_WERROR}>:-Werror>
    ${VELORA_ARITHMETIC_OPTIONS})

# velora_add_library(NAME sources...) makes velora_NAME (shared), velora_NAME_static and velora::NAME.
function(velora_add_library name)
    set(target velora_${name})
    add_library(${target} SHARED ${ARGN})
    add_library(${target}_static STATIC ${ARGN})
    add_library(velora::${name} ALIAS ${target})
    add_library(velora::${name}_static ALIAS ${target}_static)
    set_target_properties(${target} PROPERTIES
        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
        INSTALL_RPATH "$ORIGIN" # an installed engine finds the converter beside it
        EXPORT_NAME ${name})
    set_target_properties(${target}_static PROPERTIES
        EXPORT_NAME ${name}_static
        POSITION_INDEPENDENT_CODE ON)
    foreach(library ${target} ${target}_static)
        target_link_libraries(${library} PRIVATE $<BUILD_INTERFACE:velora_options>)
        set_target_properties(${library} PROPERTIES
            CXX_VISIBILITY_PRESET hidden
            VISIBILITY_INLINES_HIDDEN ON)
    endforeach()
    install(TARGETS ${target} ${target}_static EXPORT velora_vsp_targets)
endfunction()
