# What an installation holds. All that is loaded together stands in one private folder, as in the
# build tree, so that an installed tree may be moved anywhere.
set(CMAKE_INSTALL_DOCDIR share/doc/zelstore CACHE STRING "Documents")
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
set(component_folder ${CMAKE_INSTALL_LIBDIR}/zelstore)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/ZELStore)
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/ZELStore)
file(RELATIVE_PATH from_bin /${CMAKE_INSTALL_BINDIR} /${component_folder})
set_target_properties(wmLib wmSet wmJobMgr ZELStore zelsqlite PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(zel PROPERTIES INSTALL_RPATH "$ORIGIN/${from_bin}")

target_include_directories(wmLib INTERFACE $<INSTALL_INTERFACE:${headers}>)

install(TARGETS wmLib wmSet wmJobMgr ZELStore zel EXPORT ZELStoreTargets
        RUNTIME COMPONENT runtime
        LIBRARY DESTINATION ${component_folder} COMPONENT runtime NAMELINK_COMPONENT development)
# For programs that load extensions into an SQLite of their own; nothing links it.
install(TARGETS zelsqlite LIBRARY DESTINATION ${component_folder} COMPONENT runtime)
install(FILES README.md CHANGELOG.md LICENSE SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT runtime FILES_MATCHING PATTERN *.md)
install(FILES packaging/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
# The service: what the service manager reads, and its configuration, which the Debian package has
# below /etc.
install(FILES packaging/zel.service packaging/zel.socket DESTINATION lib/systemd/system COMPONENT runtime)
install(FILES packaging/zel.sysusers DESTINATION lib/sysusers.d RENAME zel.conf COMPONENT runtime)
install(FILES packaging/zel.tmpfiles DESTINATION lib/tmpfiles.d RENAME zel.conf COMPONENT runtime)
install(FILES packaging/zel.toml DESTINATION etc/zel COMPONENT runtime)
install(FILES packaging/zel-audisp.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT runtime)
add_custom_command(OUTPUT zel.toml.5
                   COMMAND ${PROJECT_SOURCE_DIR}/packaging/configpage.sh $<TARGET_FILE:zel>
                           ${PROJECT_SOURCE_DIR}/docs/zel.toml.5.in > zel.toml.5
                   DEPENDS zel packaging/configpage.sh docs/zel.toml.5.in)
add_custom_target(manual ALL DEPENDS zel.toml.5)
install(FILES docs/zel.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
install(FILES docs/zel-serve.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT runtime)
install(FILES ${PROJECT_BINARY_DIR}/zel.toml.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT runtime)
install(FILES completions/zel.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME zel COMPONENT runtime)
install(FILES completions/_zel DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT runtime)
install(FILES completions/zel.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d
        COMPONENT runtime)
install(PROGRAMS examples/readstore.py examples/histogram.py DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT runtime)
install(FILES examples/README.md examples/events.ndjson.xz examples/raw.ndjson.xz examples/security.evtx.xz
              examples/LICENSE.Security-Datasets.txt examples/LICENSE.evtx.txt
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT runtime)
install(DIRECTORY examples/rules DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT runtime)

# For those who build a host. Locks are the store's own business.
install(DIRECTORY src/include/common DESTINATION ${headers} COMPONENT development FILES_MATCHING PATTERN *.h
        PATTERN lock.h EXCLUDE PATTERN threadannotations.h EXCLUDE)
install(FILES src/zelstore/ieventstore.h src/zelstore/izelstorequery.h
        DESTINATION ${headers}/zelstore COMPONENT development)
install(FILES src/zelstore/diskmonitor/idiskspacemonitor.h
        DESTINATION ${headers}/zelstore/diskmonitor COMPONENT development)
install(FILES examples/minimalhost.cpp examples/agenthost.cpp DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development)
install(DIRECTORY examples/outside DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development)
install(FILES packaging/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR}-dev COMPONENT development)

install(EXPORT ZELStoreTargets NAMESPACE ZELStore:: DESTINATION ${package_folder} COMPONENT development)
configure_package_config_file(cmake/ZELStoreConfig.cmake.in ZELStoreConfig.cmake
                              INSTALL_DESTINATION ${package_folder} PATH_VARS component_folder)
write_basic_package_version_file(ZELStoreConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZELStoreConfig.cmake ${PROJECT_BINARY_DIR}/ZELStoreConfigVersion.cmake
        DESTINATION ${package_folder} COMPONENT development)

# Debian packages: zelstore, and zelstore-dev for hosts. scripts/package makes them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zelstore)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debiantree.cmake)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The ZELStore authors <maintainers@zelstore.invalid>"
    CACHE STRING "Maintainer of the Debian packages")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME zelstore)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# Makes the service's user.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "systemd | systemd-standalone-sysusers | systemd-sysusers")
set(control ${PROJECT_SOURCE_DIR}/packaging/debian)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${control}/postinst ${control}/prerm ${control}/postrm ${control}/conffiles)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Takes security events as JSON records, keeps them in LevelDB
databases grouped by date, and answers queries by walking their keys. This
package holds the loadable component, zel, its command line host, and the unit
that runs the store as a service.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME zelstore-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# With the version that the runtime's package really gets, a Debian release included.
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "This package holds what it takes to build a program that
loads the event store of the package zelstore: headers, a CMake package and an
example.")
include(CPack)
