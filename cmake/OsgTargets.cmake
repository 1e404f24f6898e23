# Imported targets osg3::osg, osg3::osgUtil, ... over the variables of FindOpenSceneGraph.
# Debian's OpenSceneGraph 3.6 ships no package configuration of its own.
# Also read by the installed package, so that its users get the same targets.
find_package(OpenGL REQUIRED COMPONENTS OpenGL)
foreach(component osg osgDB osgGA osgUtil osgViewer OpenThreads)
  if(NOT TARGET osg3::${component})
    find_path(VELBRX_OSG_INCLUDE_DIR osg/Version REQUIRED)
    find_library(VELBRX_${component}_LIBRARY ${component} REQUIRED)
    mark_as_advanced(VELBRX_OSG_INCLUDE_DIR VELBRX_${component}_LIBRARY)
    add_library(osg3::${component} UNKNOWN IMPORTED)
    set_target_properties(osg3::${component} PROPERTIES
      IMPORTED_LOCATION "${VELBRX_${component}_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${VELBRX_OSG_INCLUDE_DIR}")
  endif()
endforeach()
target_link_libraries(osg3::osg INTERFACE osg3::OpenThreads OpenGL::GL)
target_link_libraries(osg3::osgDB INTERFACE osg3::osg)
target_link_libraries(osg3::osgUtil INTERFACE osg3::osg)
target_link_libraries(osg3::osgGA INTERFACE osg3::osgDB osg3::osgUtil)
target_link_libraries(osg3::osgViewer INTERFACE osg3::osgGA)
