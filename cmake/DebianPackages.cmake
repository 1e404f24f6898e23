# `cpack` makes one Debian package of each component. Configure with CMAKE_INSTALL_PREFIX=/usr: script/package does.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velbrx)
set(CPACK_PACKAGE_VENDOR "the velbrx developers")
set(CPACK_PACKAGE_CONTACT "the velbrx developers <velbrx@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_COMPONENTS_ALL runtime development programs plugin documentation)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# velbrx_debian_package(<component> <name> <section> <description>)
macro(velbrx_debian_package component name section description)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}")
endmacro()

set(runtime_package libvelbrx${velbrx_abi_version})
set(same "(= ${PROJECT_VERSION})")
velbrx_debian_package(runtime ${runtime_package} libs
  "Displays and edits octree stores of billions of laser-scanning points.")
velbrx_debian_package(development libvelbrx-dev libdevel
  "Headers, CMake package and pkg-config files.")
velbrx_debian_package(programs velbrx science
  "The viewer brxview, and brx, which builds stores of LAS, LAZ and COPC files\nand gives these back.")
velbrx_debian_package(plugin openscenegraph-plugin-velbrx science
  "A plugin of osgDB, with which any program of OpenSceneGraph opens a .brx file.")
velbrx_debian_package(documentation velbrx-doc doc
  "Pages for users and for developers, and example programs.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${runtime_package} ${same}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS "libopenscenegraph-dev, libgl-dev") # stores need neither
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_DEPENDS "${runtime_package} ${same}, fonts-dejavu-core")
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_RECOMMENDS "libgl1-mesa-dri, libegl1")
set(CPACK_DEBIAN_PLUGIN_PACKAGE_DEPENDS "${runtime_package} ${same}")
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)

# Every Debian package has its licence and the changes where Debian keeps them.
configure_file(${PROJECT_SOURCE_DIR}/NOTICES.md ${CMAKE_CURRENT_BINARY_DIR}/copyright COPYONLY)
foreach(component runtime development programs plugin documentation)
  string(TOUPPER ${component} upper)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/copyright COMPONENT ${component}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
endforeach()
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
include(CPack)
