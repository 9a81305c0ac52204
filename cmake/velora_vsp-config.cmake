# find_package(velora_vsp [COMPONENTS …]): the targets velora::vsp, velora::engine, velora::src384 (the converter) and
# velora::vsp_c (the C interface), and each with _static behind its name. Components are these names, and "shared" and
# "static" for the two kinds of library.
foreach(kind shared static)
    include("${CMAKE_CURRENT_LIST_DIR}/velora_vsp_${kind}_targets.cmake" OPTIONAL RESULT_VARIABLE velora_targets)
    set(velora_vsp_${kind}_FOUND ${velora_targets}) # a path, or NOTFOUND
endforeach()
unset(velora_targets)

foreach(name vsp engine src384 vsp_c)
    # Where only static libraries were built, these are meant by the plain names.
    if(NOT TARGET velora::${name} AND TARGET velora::${name}_static)
        add_library(velora::${name} INTERFACE IMPORTED)
        set_target_properties(velora::${name} PROPERTIES INTERFACE_LINK_LIBRARIES velora::${name}_static)
    endif()
    set(velora_vsp_${name}_FOUND ON)
endforeach()

foreach(component IN LISTS velora_vsp_FIND_COMPONENTS)
    if(velora_vsp_FIND_REQUIRED_${component} AND NOT velora_vsp_${component}_FOUND)
        set(velora_vsp_FOUND OFF)
        set(velora_vsp_NOT_FOUND_MESSAGE "This copy of velora_vsp has no component \"${component}\".")
    endif()
endforeach()
