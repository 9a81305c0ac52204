# What the tool, the tests and the benchmarks need beyond the compiler; the libraries need nothing.

# velora_missing(NAME DEBIAN_PACKAGE OPTION) ends the configuration with what to install, or what to leave out.
function(velora_missing name package option)
    message(FATAL_ERROR "${name} is missing (Debian package ${package}); -D${option}=OFF does without it.")
endfunction()

# velora_find_package(NAME DEBIAN_PACKAGE OPTION) finds a package that comes with CMake files of its own.
function(velora_find_package name package option)
    find_package(${name} QUIET)
    if(NOT ${name}_FOUND)
        velora_missing(${name} ${package} ${option})
    endif()
endfunction()
