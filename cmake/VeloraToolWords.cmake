# velora_tool_words(TOOL): installs the tool's man page, where scdoc is there to make it, and what shells complete.

find_program(VELORA_SCDOC scdoc)
find_program(VELORA_GZIP gzip)
if(VELORA_DEBIAN AND NOT (VELORA_SCDOC AND VELORA_GZIP))
    message(FATAL_ERROR "Not found: scdoc, gzip.\n  apt-get install scdoc gzip")
endif()

# Where zsh looks without being told: Debian keeps one of its places for packages.
set(velora_zsh_folder site-functions)
if(VELORA_DEBIAN)
    set(velora_zsh_folder vendor-completions)
endif()

function(velora_tool_words tool)
    set(completions "${PROJECT_SOURCE_DIR}/tools/completions")
    install(FILES "${completions}/${tool}.bash" RENAME ${tool}
        DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT velora_tools)
    install(FILES "${completions}/_${tool}"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/${velora_zsh_folder}" COMPONENT velora_tools)
    install(FILES "${completions}/${tool}.fish"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d" COMPONENT velora_tools)
    if(VELORA_SCDOC AND VELORA_GZIP)
        set(source "${PROJECT_SOURCE_DIR}/docs/man/${tool}.1.scd")
        set(page "${PROJECT_BINARY_DIR}/${tool}.1")
        add_custom_command(OUTPUT "${page}.gz" DEPENDS "${source}" VERBATIM
            COMMAND sh -c "${VELORA_SCDOC} < '${source}' > '${page}' && ${VELORA_GZIP} -9nkf '${page}'")
        add_custom_target(${tool}_man_page ALL DEPENDS "${page}.gz")
        install(FILES "${page}.gz" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT velora_tools)
    endif()
endfunction()
