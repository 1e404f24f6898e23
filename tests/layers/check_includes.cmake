# Fails on an #include that runs against the layers. Run as: cmake -DROOT=<source folder> -P check_includes.cmake
cmake_minimum_required(VERSION 3.24)

# Each line: a folder, then the folders whose private headers it may include besides its own.
set(layers
  "store|"
  "osgutils|"
  "loading|"
  "lod|loading"
  "render|loading lod"
  "cull|loading lod render"
  "category|loading lod render cull"
  "registry|loading lod render cull category"
  "headless|"
  "plugin|viewer"
  "tools|"
  "viewer|headless")
set(exported_allowed_store "VelBrx")
set(exported_allowed_osgutils "VelOsgUtils")

set(violations "")
foreach(entry IN LISTS layers)
  string(REPLACE "|" ";" parts "${entry}")
  list(GET parts 0 folder)
  list(LENGTH parts length)
  set(allowed "${folder}")
  if(length GREATER 1)
    list(GET parts 1 below)
    string(REPLACE " " ";" below "${below}")
    list(APPEND allowed ${below})
  endif()
  file(GLOB_RECURSE files RELATIVE ${ROOT} ${ROOT}/${folder}/*.h ${ROOT}/${folder}/*.cpp)
  foreach(file IN LISTS files)
    file(STRINGS ${ROOT}/${file} includes REGEX "^#include ")
    foreach(include IN LISTS includes)
      if(include MATCHES "^#include \"([^/\"]+)/" AND NOT CMAKE_MATCH_1 IN_LIST allowed)
        list(APPEND violations "${file}: ${include}")
      elseif(include MATCHES "^#include <(VelBrx|VelOsgUtils|VelOsgDBBrx)/" AND DEFINED exported_allowed_${folder}
             AND NOT CMAKE_MATCH_1 IN_LIST exported_allowed_${folder})
        list(APPEND violations "${file}: ${include}")
      elseif(folder STREQUAL "store" AND include MATCHES "<(osg|OpenThreads|GL/|EGL/)")
        list(APPEND violations "${file}: ${include}")
      endif()
    endforeach()
  endforeach()
endforeach()
if(violations)
  list(JOIN violations "\n  " text)
  message(FATAL_ERROR "these includes run against the layers:\n  ${text}")
endif()
