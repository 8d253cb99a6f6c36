# A room is one folder of src/ built as one static library. It sees the headers of its own folder
# and of the rooms it may reach, through a "view": a directory of links made at configure time. An
# include of anything else does not compile, and a call into it does not link.

# tv_view(DIR ROOM...): fills DIR with links to the headers of the rooms.
function(tv_view dir)
    file(REMOVE_RECURSE ${dir})
    foreach(room IN LISTS ARGN)
        file(MAKE_DIRECTORY ${dir}/${room})
        file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/${room}/*.h)
        foreach(header IN LISTS headers)
            get_filename_component(name ${header} NAME)
            file(CREATE_LINK ${header} ${dir}/${room}/${name} SYMBOLIC)
        endforeach()
    endforeach()
endfunction()

# tv_room(ROOM [SEES ROOM...]): the library tv_<room>, with '/' as '_'.
function(tv_room room)
    cmake_parse_arguments(ARG "" "" "SEES" ${ARGN})
    string(REPLACE "/" "_" target tv_${room})
    set(reach ${ARG_SEES})
    set(libraries "")
    foreach(below IN LISTS ARG_SEES)
        string(REPLACE "/" "_" library tv_${below})
        list(APPEND libraries ${library})
        list(APPEND reach ${TV_REACH_${below}})
    endforeach()
    list(REMOVE_DUPLICATES reach)
    set(TV_REACH_${room} ${reach} PARENT_SCOPE)

    file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/${room}/*.cpp)
    if(room STREQUAL "platform")
        file(GLOB system_sources CONFIGURE_DEPENDS
             ${PROJECT_SOURCE_DIR}/src/platform/${TV_SYSTEM}/*.cpp)
        list(APPEND sources ${system_sources})
        set(system_room platform/${TV_SYSTEM})  # its headers are for the platform room alone
    endif()
    set(view ${CMAKE_BINARY_DIR}/views/${target})
    tv_view(${view} ${room} ${system_room} ${reach})
    if(sources)
        add_library(${target} STATIC ${sources})
        target_include_directories(${target} PRIVATE ${view})
        target_link_libraries(${target} PUBLIC ${libraries} PRIVATE tv_flags)
    else()
        add_library(${target} INTERFACE)
        target_link_libraries(${target} INTERFACE ${libraries})
    endif()
endfunction()

# tv_source_options(OPTIONS SOURCE...): compile options of single sources, which must exist: a property
# of a file that was renamed would be lost without a word.
function(tv_source_options options)
    foreach(source IN LISTS ARGN)
        if(NOT EXISTS ${PROJECT_SOURCE_DIR}/${source})
            message(FATAL_ERROR "no such source: ${source}")
        endif()
    endforeach()
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "${options}")
endfunction()
