# Installs the CMake package VelOsgDBBrx and the pkg-config files.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VelOsgDBBrx)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VelOsgDBBrxConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VelOsgDBBrxConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VelOsgDBBrxConfigVersion.cmake
  COMPATIBILITY ${velbrx_compatibility})
install(FILES ${PROJECT_BINARY_DIR}/VelOsgDBBrxConfig.cmake ${PROJECT_BINARY_DIR}/VelOsgDBBrxConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/OsgTargets.cmake DESTINATION ${package_dir} COMPONENT development)
foreach(set VelOctreeBrxTargets VelOsgDBBrxTargets)
  install(EXPORT ${set} NAMESPACE VelOsgDBBrx:: DESTINATION ${package_dir} COMPONENT development)
endforeach()

# From the folder of a .pc file to the prefix, so that it stays right when the prefix is moved.
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pc_to_prefix /${pkgconfig_dir} /)
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
foreach(library vel_octree_brx vel_osgdb_brx)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${library}.pc.in ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc DESTINATION ${pkgconfig_dir} COMPONENT development)
endforeach()
