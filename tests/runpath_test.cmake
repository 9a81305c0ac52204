# Nothing that is built may search the current folder for libraries, where anybody may have put them: every element of
# a RUNPATH is an absolute path, or starts at the file itself.  cmake -DBUILD=FOLDER -P runpath_test.cmake

cmake_minimum_required(VERSION 3.21)

set(element "(/[^;]*|[$]ORIGIN(/[^;]*)?)")
set(count 0)
foreach(folder bin lib lib64 tests examples benchmarks)
    file(GLOB_RECURSE files LIST_DIRECTORIES OFF "${BUILD}/${folder}/*")
    foreach(file IN LISTS files)
        unset(rpath)
        unset(runpath)
        file(READ_ELF "${file}" RPATH rpath RUNPATH runpath CAPTURE_ERROR not_elf)
        foreach(path IN ITEMS "${rpath}" "${runpath}") # both with ; for :
            if(path STREQUAL "")
                continue()
            endif()
            math(EXPR count "${count} + 1")
            if(NOT path MATCHES "^${element}(;${element})*$")
                message(SEND_ERROR "${file} searches from the current folder: ${path}")
            endif()
        endforeach()
    endforeach()
endforeach()
if(count EQUAL 0)
    message(FATAL_ERROR "No file with a RUNPATH in ${BUILD}")
endif()
message("${count} files with a RUNPATH")
