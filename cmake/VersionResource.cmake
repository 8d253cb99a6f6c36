# What Windows shows of a file: its version, who made it and whose it is, from project() and LICENSE.

if(WIN32)
    enable_language(RC)
endif()
file(STRINGS ${PROJECT_SOURCE_DIR}/LICENSE TV_COPYRIGHT REGEX "^Copyright \\(c\\)" LIMIT_COUNT 1)
string(REGEX REPLACE "^Copyright \\(c\\) [0-9, -]+" "" TV_COMPANY "${TV_COPYRIGHT}")

# tv_version_resource(TARGET FILE DESCRIPTION): TARGET, which links as FILE, carries the resource.
function(tv_version_resource target file description)
    get_target_property(type ${target} TYPE)
    set(kind VFT_DLL)
    if(type STREQUAL "EXECUTABLE")
        set(kind VFT_APP)
    endif()
    get_filename_component(name ${file} NAME_WE)
    set(resource ${CMAKE_CURRENT_BINARY_DIR}/${name}.rc)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${resource} @ONLY)
    target_sources(${target} PRIVATE ${resource})
endfunction()
