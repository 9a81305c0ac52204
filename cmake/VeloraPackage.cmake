# For projects that use an installed copy: find_package(velora_vsp), and pkg-config.

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
if(NOT VELORA_DEBIAN) # whose packages have it as copyright
    install(FILES LICENSE TYPE DOC COMPONENT velora_development)
endif()

# The files for pkg-config find the prefix from their own place, wherever it has been moved to, unless the folders were
# given as absolute paths.
set(velora_pc_folder "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH velora_pc_prefix "${CMAKE_INSTALL_PREFIX}/${velora_pc_folder}" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" velora_pc_prefix "${velora_pc_prefix}")
cmake_path(APPEND velora_pc_libdir "\${prefix}" "${CMAKE_INSTALL_LIBDIR}")
cmake_path(APPEND velora_pc_includedir "\${prefix}" "${CMAKE_INSTALL_INCLUDEDIR}")
string(REPLACE ";" " " velora_pc_runtime "${velora_cxx_runtime}")

# velora_add_pc(NAME LIBRARY PUBLIC|PRIVATE REQUIRES DESCRIPTION) installs NAME.pc. What a library needs only inside
# matters to those who link it statically: who installs nothing else need not say --static.
function(velora_add_pc name library visibility requires description)
    set(requires_key Requires)
    set(libs "")
    if(library)
        set(libs " -l${library}")
    endif()
    if(NOT VELORA_SHARED)
        string(APPEND libs " ${velora_pc_runtime}")
    elseif(visibility STREQUAL PRIVATE)
        set(requires_key Requires.private)
    endif()
    configure_file("${PROJECT_SOURCE_DIR}/cmake/velora.pc.in" "${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc" DESTINATION "${velora_pc_folder}"
        COMPONENT velora_development)
endfunction()
velora_add_pc(velora_src384 velora_src384 PRIVATE "" "Companion sample-rate converter of Velora VSP")
velora_add_pc(velora_engine velora_vsp PRIVATE velora_src384 "Velora VSP's engine by itself, for C++")
velora_add_pc(velora_vsp_c velora_vsp_c PRIVATE velora_engine "Variable-speed playback, C interface")
velora_add_pc(velora_vsp "" PUBLIC "velora_engine velora_vsp_c" "Variable-speed playback for C++17")
