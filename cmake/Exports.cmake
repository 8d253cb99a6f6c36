# The lists of exports that linkers read, made from the one header.

set(TV_HEADER ${PROJECT_SOURCE_DIR}/include/emailsending.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${TV_HEADER})
file(STRINGS ${TV_HEADER} declarations REGEX "^[a-z].* EMAILSENDING_CALL ")
set(TV_EXPORTS "")   # as the compiler calls them on Windows: name, or name@BYTES in 32 bits
foreach(declaration IN LISTS declarations)
    string(REGEX REPLACE ".* EMAILSENDING_CALL ([A-Za-z]+)\\(.*" "\\1" name "${declaration}")
    if(WIN32 AND CMAKE_SIZEOF_VOID_P EQUAL 4)
        if(declaration MATCHES "\\(void\\)")
            string(APPEND name "@0")
        else()
            string(APPEND name "@4")   # every function takes one argument at most
        endif()
    endif()
    list(APPEND TV_EXPORTS ${name})
endforeach()

# tv_write_def(EXPORTS IMPORTS): what the DLL exports (in 32 bits the stdcall names with their leading
# underscore, which the linker would drop), and for the import library the symbols of hosts that link
# with the names to look up in the DLL.
function(tv_write_def exports imports)
    set(exported "LIBRARY emailsending.dll\nEXPORTS\n")
    set(imported ${exported})
    foreach(name IN LISTS TV_EXPORTS)
        if(name MATCHES "@")
            string(APPEND exported "    \"_${name}\" = \"${name}\"\n")
            string(APPEND imported "    \"${name}\" == \"_${name}\"\n")
        else()
            string(APPEND exported "    ${name}\n")
            string(APPEND imported "    ${name}\n")
        endif()
    endforeach()
    file(CONFIGURE OUTPUT ${exports} CONTENT "${exported}" @ONLY)
    file(CONFIGURE OUTPUT ${imports} CONTENT "${imported}" @ONLY)
endfunction()

# tv_write_map(FILE): what the shared object shows, and under which version. Hosts that were linked ask
# for it: a function that comes later gets a version of its own, and this one never changes.
function(tv_write_map path)
    list(JOIN TV_EXPORTS ";\n        " names)
    file(CONFIGURE OUTPUT ${path} CONTENT
        "EMAILSENDING_1.0 {\n    global:\n        ${names};\n    local:\n        *;\n};\n" @ONLY)
endfunction()
