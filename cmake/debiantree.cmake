# Gives the trees that the Debian packages are made of the papers that Debian wants, packed, and puts
# the configuration where Debian has it.
string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(GLOB_RECURSE copyrights ${CPACK_TEMPORARY_DIRECTORY}/*/copyright)
foreach(copyright ${copyrights})
  cmake_path(REPLACE_FILENAME copyright changelog)
  file(WRITE ${copyright} "zelstore (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n"
       "  * See CHANGELOG.md of zelstore.\n\n -- ${CPACK_DEBIAN_PACKAGE_MAINTAINER}  ${now}\n")
endforeach()
file(GLOB_RECURSE papers ${CPACK_TEMPORARY_DIRECTORY}/*/changelog ${CPACK_TEMPORARY_DIRECTORY}/*/zel*.[158])
execute_process(COMMAND gzip -9n ${papers} COMMAND_ERROR_IS_FATAL ANY)
file(GLOB configurations ${CPACK_TEMPORARY_DIRECTORY}/*/usr/etc)
foreach(configuration ${configurations})
  file(RENAME ${configuration} ${configuration}/../../etc)
endforeach()
