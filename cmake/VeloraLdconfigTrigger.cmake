# Run by cpack behind the packages: CPack adds scripts that call ldconfig, which packaging/triggers does the way that
# Debian wants it.
find_program(dpkg_deb dpkg-deb REQUIRED)
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    set(unpacked "${CPACK_TEMPORARY_DIRECTORY}/unpacked")
    file(REMOVE_RECURSE "${unpacked}")
    execute_process(COMMAND "${dpkg_deb}" --raw-extract "${package}" "${unpacked}" COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE "${unpacked}/DEBIAN/postinst" "${unpacked}/DEBIAN/postrm")
    execute_process(COMMAND "${dpkg_deb}" --root-owner-group --build "${unpacked}" "${package}"
        OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
