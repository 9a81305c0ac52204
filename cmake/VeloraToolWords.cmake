# The tool's man page, where scdoc is there to make it, and what shells complete.

set(completions "${PROJECT_SOURCE_DIR}/tools/completions")
install(FILES "${completions}/velora-vsp.bash" RENAME velora-vsp
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT velora_tools)
install(FILES "${completions}/_velora-vsp"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions" COMPONENT velora_tools)
install(FILES "${completions}/velora-vsp.fish"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d" COMPONENT velora_tools)

find_program(VELORA_SCDOC scdoc)
find_program(VELORA_GZIP gzip)
if(VELORA_SCDOC AND VELORA_GZIP)
    set(source "${PROJECT_SOURCE_DIR}/docs/man/velora-vsp.1.scd")
    set(page "${PROJECT_BINARY_DIR}/velora-vsp.1")
    add_custom_command(OUTPUT "${page}.gz" DEPENDS "${source}" VERBATIM
        COMMAND sh -c "${VELORA_SCDOC} < '${source}' > '${page}' && ${VELORA_GZIP} -9nkf '${page}'")
    add_custom_target(velora_man_page ALL DEPENDS "${page}.gz")
    install(FILES "${page}.gz" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT velora_tools)
elseif(VELORA_DEBIAN)
    message(FATAL_ERROR "Not found: scdoc, gzip.\n  apt-get install scdoc gzip")
endif()
