# Installs the CMake package VelOsgDBBrx and the pkg-config file.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VelOsgDBBrx)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VelOsgDBBrxConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VelOsgDBBrxConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VelOsgDBBrxConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VelOsgDBBrxConfig.cmake ${PROJECT_BINARY_DIR}/VelOsgDBBrxConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/OsgTargets.cmake DESTINATION ${package_dir})
install(EXPORT VelOsgDBBrxTargets NAMESPACE VelOsgDBBrx:: DESTINATION ${package_dir})
configure_file(${PROJECT_SOURCE_DIR}/cmake/vel_osgdb_brx.pc.in ${PROJECT_BINARY_DIR}/vel_osgdb_brx.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vel_osgdb_brx.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
