# find_package(velora_vsp) for projects that use an installed copy.

include(CMakePackageConfigHelpers)

set(velora_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/velora_vsp")
write_basic_package_version_file(
    "${CMAKE_CURRENT_BINARY_DIR}/velora_vsp-config-version.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES
    "${CMAKE_CURRENT_BINARY_DIR}/velora_vsp-config-version.cmake"
    "${CMAKE_CURRENT_SOURCE_DIR}/cmake/velora_vsp-config.cmake"
    DESTINATION "${velora_package_dir}" COMPONENT velora_development)
foreach(kind shared static)
    string(TOUPPER "VELORA_${kind}" wanted)
    if(${wanted})
        install(EXPORT velora_vsp_${kind} FILE velora_vsp_${kind}_targets.cmake NAMESPACE velora::
            DESTINATION "${velora_package_dir}" COMPONENT velora_development)
    endif()
endforeach()
install(DIRECTORY include/velora TYPE INCLUDE COMPONENT velora_development)
