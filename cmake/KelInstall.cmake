# The installed tree: libraries, headers under include/kel, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kel_datastorage)

install(EXPORT kel_datastorageTargets NAMESPACE kel:: DESTINATION ${package_dir} COMPONENT development)

configure_package_config_file(cmake/kel_datastorageConfig.cmake.in kel_datastorageConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(kel_datastorageConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/kel_datastorageConfig.cmake
    ${PROJECT_BINARY_DIR}/kel_datastorageConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT development)

file(RELATIVE_PATH KEL_PC_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" KEL_PC_PREFIX "${KEL_PC_PREFIX}")
string(JOIN " " KEL_PC_THREADS "" ${CMAKE_THREAD_LIBS_INIT}) # nothing where the C library has the threads
configure_file(cmake/kel_datastorage.pc.in kel_datastorage.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kel_datastorage.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
