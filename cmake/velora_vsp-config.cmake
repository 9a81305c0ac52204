foreach(kind shared static)
    include("${CMAKE_CURRENT_LIST_DIR}/velora_vsp_${kind}_targets.cmake" OPTIONAL)
endforeach()

# Where only static libraries were built, these are meant by the plain names.
foreach(name vsp engine src384 vsp_c)
    if(NOT TARGET velora::${name})
        add_library(velora::${name} INTERFACE IMPORTED)
        set_target_properties(velora::${name} PROPERTIES INTERFACE_LINK_LIBRARIES velora::${name}_static)
    endif()
endforeach()
