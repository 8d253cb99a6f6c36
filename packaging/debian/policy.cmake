# What Debian's policy asks of the tree that CPack is about to pack.

set(tree ${CPACK_TEMPORARY_INSTALL_DIRECTORY}${CPACK_PACKAGING_INSTALL_PREFIX})
set(documents ${tree}/share/doc/emailsending)
set(readable OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
file(RENAME ${documents}/CHANGELOG.md ${documents}/changelog)
file(REMOVE ${documents}/LICENSE)
# The pages name what has another name here, and samples, which are in the archives alone.
file(GLOB_RECURSE pages ${documents}/*.md)
foreach(page ${pages})
    file(READ ${page} text)
    string(REPLACE "](CHANGELOG.md)" "](changelog.gz)" text "${text}")
    string(REPLACE "](LICENSE)" "](copyright)" text "${text}")
    string(REGEX REPLACE "\\[([^]\n]+)\\]\\(samples[^)]*\\)" "\\1" text "${text}")
    file(WRITE ${page} "${text}")
endforeach()

# The licence, and those of others of whose work a part is in the binaries.
file(READ ${CMAKE_CURRENT_LIST_DIR}/copyright copyright)
foreach(licence PSF-2.0 GCC-exception-2.0 GCC-exception-3.1)
    file(READ ${CMAKE_CURRENT_LIST_DIR}/../licenses/${licence}.txt text)
    string(STRIP "${text}" text)
    string(REGEX REPLACE "[ \t]+\n" "\n" text "\n${text}")
    string(REGEX REPLACE "\n\n" "\n.\n" text "${text}")
    string(REGEX REPLACE "\n\n" "\n.\n" text "${text}") # what lay between two of them
    string(REPLACE "\n" "\n " text "${text}")
    string(APPEND copyright "\nLicense: ${licence}${text}\n")
endforeach()
file(WRITE ${documents}/copyright "${copyright}")
file(CHMOD ${documents}/copyright PERMISSIONS ${readable})
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
