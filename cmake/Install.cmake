# What `cmake --install` lays down, and CPack's Debian package of it. On Linux the tree of a prefix; on
# Windows the folders of the zip file, where both architectures have a place beside each other.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# All that is installed, to be built before.
add_custom_target(delivered)
set(programs emailsend)
if(TARGET selftest)
    list(APPEND programs selftest)
endif()
if(TARGET emailsending_import)
    add_dependencies(delivered emailsending_import)
endif()
add_dependencies(delivered emailsending ${programs})

# tv_symbols_beside(TARGET FOLDER COMPONENT): with --strip, what a debugger needs is left in debug/ of the build
# folder, and the installed file names it.
function(tv_symbols_beside target folder component)
    set(name $<TARGET_FILE_NAME:${target}>)
    set(symbols ${CMAKE_BINARY_DIR}/debug/${name}.debug)
    file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/debug)
    install(CODE "if(CMAKE_INSTALL_DO_STRIP)
        execute_process(COMMAND_ERROR_IS_FATAL ANY
            COMMAND \"${CMAKE_OBJCOPY}\" --only-keep-debug \"$<TARGET_FILE:${target}>\" \"${symbols}\")
        execute_process(COMMAND_ERROR_IS_FATAL ANY
            COMMAND \"${CMAKE_OBJCOPY}\" \"--add-gnu-debuglink=${symbols}\"
                \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${folder}/${name}\")
    endif()" COMPONENT ${component})
endfunction()

if(WIN32)
    set(LIBRARIES_32 x86)
    set(LIBRARIES_64 x64)
    set(CMAKE_INSTALL_INCLUDEDIR include)
    set(config_folder cmake)
    math(EXPR bits "8 * ${CMAKE_SIZEOF_VOID_P}")
    set(libraries ${LIBRARIES_${bits}})
    install(TARGETS emailsending ${programs}
        RUNTIME DESTINATION ${libraries} LIBRARY DESTINATION ${libraries})
    install(FILES ${CMAKE_BINARY_DIR}/libemailsending.dll.a DESTINATION ${libraries})
else()
    set(libraries ${CMAKE_INSTALL_LIBDIR})
    set(LIBRARIES_32 lib32)
    set(LIBRARIES_64 ${libraries})
    set(config_folder ${libraries}/cmake/emailsending)
    install(TARGETS emailsending LIBRARY DESTINATION ${libraries} COMPONENT library)
    tv_symbols_beside(emailsending ${libraries} library)
    install(TARGETS ${programs} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT program)
    foreach(program IN LISTS programs)
        tv_symbols_beside(${program} ${CMAKE_INSTALL_BINDIR} program)
    endforeach()

    file(RELATIVE_PATH PREFIX_FROM_HERE /${libraries}/pkgconfig /)
    string(REGEX REPLACE "/$" "" PREFIX_FROM_HERE ${PREFIX_FROM_HERE})
    configure_file(packaging/emailsending.pc.in packaging/emailsending.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/packaging/emailsending.pc
        DESTINATION ${libraries}/pkgconfig COMPONENT development)

    install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md LICENSE TYPE DOC COMPONENT documentation)
    install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
    install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
    set(man ${CMAKE_CURRENT_BINARY_DIR}/man)
    add_custom_target(manpages
        COMMAND /usr/bin/python3 ${PROJECT_SOURCE_DIR}/tools/manpages.py ${man} VERBATIM)
    add_dependencies(delivered manpages)
    foreach(page emailsend.1 emailsending.3 emailsending.ini.5)
        string(REGEX REPLACE ".*\\." man folder ${page})
        install(FILES ${man}/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/${folder}
            COMPONENT documentation)
    endforeach()
endif()

install(FILES include/emailsending.h TYPE INCLUDE COMPONENT development)
set(HEADERS ${CMAKE_INSTALL_INCLUDEDIR})
file(RELATIVE_PATH PREFIX_FROM_CONFIG /${config_folder} /)
configure_package_config_file(packaging/emailsending-config.cmake.in packaging/emailsending-config.cmake
    INSTALL_DESTINATION ${config_folder} PATH_VARS HEADERS LIBRARIES_32 LIBRARIES_64
    NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
# The file above looks at the architecture itself.
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/packaging/emailsending-config-version.cmake
    COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/packaging/emailsending-config.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/packaging/emailsending-config-version.cmake
    DESTINATION ${config_folder} COMPONENT development)

if(NOT WIN32)
    set(CPACK_GENERATOR DEB)
    set(CPACK_PACKAGE_NAME emailsending)
    set(CPACK_PACKAGE_CONTACT "emailsending authors <authors@emailsending.invalid>")
    set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    set(CPACK_STRIP_FILES ON)
    set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
        OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/policy.cmake)
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
    set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)
    set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
    set(CPACK_DEBIAN_PACKAGE_SECTION mail)
    set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
    set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
    set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "sends e-mail for programs of any language
A library with 24 plain C functions that builds one message with a logo and
attachments and hands it to an SMTP server: TLS 1.0 to 1.3, STARTTLS, logins
from PLAIN to NTLM and OAuth2, its own DNS client, and a text that says at
which step and why a send went wrong.

With emailsend, which sends one message from the command line and looks at
mail servers (emailsend doctor), the header and the manual pages.")
    include(CPack)
endif()
