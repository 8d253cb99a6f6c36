# What Debian's policy asks of the tree that CPack is about to pack.

set(tree ${CPACK_TEMPORARY_INSTALL_DIRECTORY}${CPACK_PACKAGING_INSTALL_PREFIX})
set(documents ${tree}/share/doc/emailsending)
set(readable OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
file(RENAME ${documents}/CHANGELOG.md ${documents}/changelog)
file(REMOVE ${documents}/LICENSE)
file(COPY ${CMAKE_CURRENT_LIST_DIR}/copyright DESTINATION ${documents} FILE_PERMISSIONS ${readable})
file(COPY ${CMAKE_CURRENT_LIST_DIR}/lintian-overrides
    DESTINATION ${tree}/share/lintian/overrides FILE_PERMISSIONS ${readable})
file(RENAME ${tree}/share/lintian/overrides/lintian-overrides ${tree}/share/lintian/overrides/emailsending)

string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)   # of SOURCE_DATE_EPOCH, where it is set
file(CONFIGURE OUTPUT ${documents}/changelog.Debian CONTENT
"emailsending (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) stable; urgency=medium

  * What is new stands in changelog.gz.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
file(GLOB pages ${tree}/share/man/man*/*)
foreach(file ${documents}/changelog ${documents}/changelog.Debian ${pages})
    execute_process(COMMAND gzip -9n ${file} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
