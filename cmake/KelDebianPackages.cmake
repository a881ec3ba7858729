# Three Debian packages of the installed tree: the libraries, what building on them takes, and the tools. Made by scripts/package,
# which also sets SOURCE_DATE_EPOCH: the same sources give the same packages.
set(runtime libkel-datastorage${PROJECT_VERSION_MAJOR})
set(development libkel-datastorage-dev)
set(tools kel-datastorage-tools)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "libkel_datastorage developers <libkel-datastorage@example.com>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE libkel-datastorage)
set(CPACK_DEBIAN_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(version ${CPACK_DEBIAN_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

set(what "It keeps every parameter and process value of a machine in memory,
announces each change through the application's data sensor, and saves
changes in the background to an SQLite file.")
set(multiarch "\nMulti-Arch: same") # CPack has no variable for this field

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs${multiarch})
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}
${what}

This package holds the shared libraries.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${PROJECT_BINARY_DIR}/kernel ${PROJECT_BINARY_DIR}/database ${PROJECT_BINARY_DIR}/datastorage)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel${multiarch})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${runtime} (= ${version})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS rapidjson-dev) # datastorage/kelparsedbjson.h includes it
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION} - development files
${what}

This package holds the headers, the CMake package and the pkg-config file.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${tools})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${runtime} (= ${version})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "checks, converts, shows and compares data dictionaries
keldict tells those who write a data dictionary for libkel_datastorage what
a device would do with it: where it would stop, what it would lose, and what
it would change without a word.")

string(TIMESTAMP KEL_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(packaging/debian/changelog.in changelog.Debian @ONLY)
execute_process(COMMAND gzip -9n --keep --force changelog.Debian
  WORKING_DIRECTORY ${PROJECT_BINARY_DIR} COMMAND_ERROR_IS_FATAL ANY)

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  install(FILES packaging/debian/copyright ${PROJECT_BINARY_DIR}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${${component}} COMPONENT ${component})
endforeach()
install(FILES packaging/debian/lintian-overrides
  DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${runtime} COMPONENT runtime)

include(CPack)
