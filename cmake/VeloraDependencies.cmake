# What the tool, the tests and the benchmarks need beyond the compiler; the libraries need nothing.

# velora_missing(NAME DEBIAN_PACKAGES OPTION) ends the configuration with what to install, or what to leave out. The
# indented line is one that CMake leaves whole.
function(velora_missing name packages option)
    message(FATAL_ERROR "Not found: ${name}.\n  apt-get install ${packages}    (or leave it out: -D${option}=OFF)")
endfunction()

# velora_find_package(NAME DEBIAN_PACKAGE OPTION) finds a package that comes with CMake files of its own.
function(velora_find_package name package option)
    find_package(${name} QUIET)
    if(NOT ${name}_FOUND)
        velora_missing(${name} ${package} ${option})
    endif()
endfunction()
