include("${CMAKE_CURRENT_LIST_DIR}/velora_vsp_targets.cmake")
