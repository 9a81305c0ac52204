# How every target of this project is compiled, and how a library comes as a shared and a static one.

include(CheckCXXSourceCompiles)
check_cxx_source_compiles("
#if !defined(__i386__)
#error
#endif
int main() {}" VELORA_TARGET_I386)

# What floating-point arithmetic takes to round the same on every machine:
# a fused multiply-add rounds once where we round twice, and the x87 unit rounds to more bits than a type has.
set(VELORA_ARITHMETIC_OPTIONS -ffp-contract=off)
if(VELORA_TARGET_I386)
    list(APPEND VELORA_ARITHMETIC_OPTIONS -msse2 -mfpmath=sse)
endif()

add_library(velora_options INTERFACE)
target_compile_features(velora_options INTERFACE cxx_std_20)
target_compile_options(velora_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    $<$<BOOL:${VELORA_WERROR}>:-Werror>
    ${VELORA_ARITHMETIC_OPTIONS}
    # What is built doesn't tell in which folder. A debugger wants to know.
    $<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>
    $<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${CMAKE_BINARY_DIR}=build>)

# velora_optimise(sources...) is for files that hold the hot loops: with -O2 they take 14 % more time, with -Os up to
# ten times as much. A debug build is left as it is, to be stepped through.
function(velora_optimise)
    set_property(SOURCE ${ARGN} APPEND PROPERTY COMPILE_OPTIONS $<$<NOT:$<CONFIG:Debug>>:-O3>)
endfunction()

# BUILD_SHARED_LIBS, where it is given, decides which kind of library is built and installed; else both are.
# The other kind is built only for those who link it by its name.
set(VELORA_SHARED ON)
set(VELORA_STATIC ON)
if(DEFINED BUILD_SHARED_LIBS)
    set(VELORA_SHARED ${BUILD_SHARED_LIBS})
    if(BUILD_SHARED_LIBS)
        set(VELORA_STATIC OFF)
    endif()
endif()

# Whoever links a static library needs the C++ runtime, and a linker for C doesn't add it by itself.
set(velora_cxx_runtime ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
list(FILTER velora_cxx_runtime INCLUDE REGEX "^(stdc\\+\\+|c\\+\\+.*|m)$")
list(REMOVE_DUPLICATES velora_cxx_runtime)
list(TRANSFORM velora_cxx_runtime PREPEND "-l")

# What is installed lies in the build tree as it will lie under the prefix, so that the same relative path leads from
# one file to another in both. CMake need not change the path while it installs, for which it would leave room in the
# form of an empty element: that is the current folder.
set(VELORA_OUTPUT "${PROJECT_BINARY_DIR}")
get_property(velora_multi_config GLOBAL PROPERTY GENERATOR_IS_MULTI_CONFIG)
if(velora_multi_config)
    string(APPEND VELORA_OUTPUT "/$<CONFIG>")
endif()
# velora_place(TARGET RUNPATH) puts a target there; it searches RUNPATH for libraries of ours.
function(velora_place target runpath)
    set_target_properties(${target} PROPERTIES
        RUNTIME_OUTPUT_DIRECTORY "${VELORA_OUTPUT}/${CMAKE_INSTALL_BINDIR}"
        LIBRARY_OUTPUT_DIRECTORY "${VELORA_OUTPUT}/${CMAKE_INSTALL_LIBDIR}"
        ARCHIVE_OUTPUT_DIRECTORY "${VELORA_OUTPUT}/${CMAKE_INSTALL_LIBDIR}"
        INSTALL_RPATH "${runpath}"
        BUILD_WITH_INSTALL_RPATH ON)
endfunction()

# velora_add_library(NAME sources...) makes velora_NAME (shared), velora_NAME_static and velora::NAME.
function(velora_add_library name)
    set(target velora_${name})
    add_library(${target} SHARED ${ARGN})
    add_library(${target}_static STATIC ${ARGN})
    add_library(velora::${name}_static ALIAS ${target}_static)
    if(VELORA_SHARED)
        add_library(velora::${name} ALIAS ${target})
    else()
        add_library(velora::${name} ALIAS ${target}_static)
    endif()
    set_target_properties(${target} PROPERTIES
        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
        EXPORT_NAME ${name})
    velora_place(${target} "$ORIGIN") # the engine finds the converter beside it
    velora_place(${target}_static "")
    set_target_properties(${target}_static PROPERTIES
        EXPORT_NAME ${name}_static
        OUTPUT_NAME ${target} # as linkers look for it: lib….a beside lib….so
        POSITION_INDEPENDENT_CODE ON)
    target_link_libraries(${target}_static INTERFACE ${velora_cxx_runtime})
    foreach(library ${target} ${target}_static)
        target_include_directories(${library} PUBLIC
            $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
        target_link_libraries(${library} PRIVATE $<BUILD_INTERFACE:velora_options>)
        set_target_properties(${library} PROPERTIES
            CXX_VISIBILITY_PRESET hidden
            VISIBILITY_INLINES_HIDDEN ON)
    endforeach()
    velora_offer(shared ${VELORA_SHARED} ${target})
    velora_offer(static ${VELORA_STATIC} ${target}_static)
endfunction()

# velora_add_bundle(NAME libraries...) makes velora::NAME and velora::NAME_static of some of these.
function(velora_add_bundle name)
    foreach(kind shared static)
        string(TOUPPER "VELORA_${kind}" wanted)
        set(suffix "")
        if(kind STREQUAL static)
            set(suffix _static)
        endif()
        set(target velora_${name}${suffix})
        add_library(${target} INTERFACE)
        foreach(library ${ARGN})
            target_link_libraries(${target} INTERFACE velora_${library}${suffix})
        endforeach()
        set_target_properties(${target} PROPERTIES EXPORT_NAME ${name}${suffix})
        if(${wanted} AND VELORA_INSTALL)
            install(TARGETS ${target} EXPORT velora_vsp_${kind})
        endif()
    endforeach()
    add_library(velora::${name}_static ALIAS velora_${name}_static)
    if(VELORA_SHARED)
        add_library(velora::${name} ALIAS velora_${name})
    else()
        add_library(velora::${name} ALIAS velora_${name}_static)
    endif()
endfunction()

# velora_offer(KIND WANTED TARGET) installs a library with those of its kind, or leaves it to those who ask for it.
function(velora_offer kind wanted target)
    if(NOT wanted)
        set_target_properties(${target} PROPERTIES EXCLUDE_FROM_ALL ON)
    elseif(VELORA_INSTALL)
        install(TARGETS ${target} EXPORT velora_vsp_${kind}
            LIBRARY COMPONENT velora_runtime NAMELINK_COMPONENT velora_development
            ARCHIVE COMPONENT velora_development)
    endif()
endfunction()
