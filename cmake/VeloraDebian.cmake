# Debian packages: cmake --preset debian && cmake --build --preset debian && (cd build/debian && cpack)

if(NOT VELORA_SHARED OR NOT VELORA_STATIC OR NOT VELORA_BUILD_TOOLS)
    message(FATAL_ERROR "The Debian packages hold both kinds of library and the tool.")
endif()
set(VELORA_MAINTAINER "the Velora VSP authors <authors@velora-vsp.invalid>" CACHE STRING "Who made the packages")
find_program(VELORA_GZIP gzip REQUIRED)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velora-vsp)
set(CPACK_PACKAGE_CONTACT "${VELORA_MAINTAINER}")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR}") # the tool needs them
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_VELORA_RUNTIME_PACKAGE_CONTROL_EXTRA) # which packages need which version of the libraries
foreach(file shlibs symbols triggers)
    list(APPEND CPACK_DEBIAN_VELORA_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/${file}")
endforeach()
set(CPACK_POST_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/VeloraLdconfigTrigger.cmake")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_COMPONENTS_ALL)

# velora_add_deb(COMPONENT PACKAGE SECTION DEPENDS SUMMARY TEXT) makes a package of an install component.
macro(velora_add_deb component package section depends summary text)
    string(TOUPPER ${component} key)
    list(APPEND CPACK_COMPONENTS_ALL ${component})
    set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${package})
    set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${key}_PACKAGE_DEPENDS "${depends}")
    set(CPACK_COMPONENT_${key}_DESCRIPTION "${summary}\n${text}")
    install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" RENAME copyright
        DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${package}" COMPONENT ${component})
    install(FILES "${PROJECT_BINARY_DIR}/changelog.gz"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${package}" COMPONENT ${component})
endmacro()

configure_file("${PROJECT_SOURCE_DIR}/packaging/changelog.in" "${PROJECT_BINARY_DIR}/changelog" @ONLY)
execute_process(COMMAND "${VELORA_GZIP}" -9nkf "${PROJECT_BINARY_DIR}/changelog" COMMAND_ERROR_IS_FATAL ANY)

set(library libvelora-vsp${PROJECT_VERSION_MAJOR})
set(same_version "${library} (= ${PROJECT_VERSION})")
velora_add_deb(velora_runtime ${library} libs ""
    "variable-speed-playback audio engine"
    "Plays sound faster or slower, 0.125 to 8 times, at the same pitch. This\npackage holds the shared libraries.")
velora_add_deb(velora_development libvelora-vsp-dev libdevel "${same_version}"
    "variable-speed-playback audio engine, for development"
    "Plays sound faster or slower, 0.125 to 8 times, at the same pitch. This\npackage holds headers, static libraries, and files for CMake and\npkg-config.")
velora_add_deb(velora_tools velora-tools sound "${same_version}"
    "plays files of sound and film faster or slower at the same pitch"
    "The command velora-vsp reads and writes what FFmpeg's libraries know, and\nkeeps picture, subtitles and chapters in step.\nvelora-play plays through the sound card, with keys for the speed.")
include(CPack)
