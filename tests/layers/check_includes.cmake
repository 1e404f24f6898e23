# Fails on an #include that runs against the layers. Run as: cmake -DROOT=<source folder> -P check_includes.cmake
#
# An exported header belongs to the folder of the .cpp of the same name, which implements it. Headers without one (types,
# interfaces) may be included from everywhere.
cmake_minimum_required(VERSION 3.24)

# Each line: a folder, then the folders below it, which it may include from. A folder stands for those in it, too, unless
# they have a line of their own.
set(layers
  "simd|"
  "store/io|"
  "store/las|store/io"
  "store|store/io store/las"
  "store/journal|store store/io"
  "store/builder|store store/io store/journal store/las store/normals simd"
  "store/folder|store store/io store/journal"
  "store/part|store store/io store/las"
  "store/export|store store/io store/las store/part"
  "store/normals|store store/io store/las simd"
  "store/sample|store store/io store/las"
  "osgutils|"
  "loading|osgutils store store/io"
  "lod|loading osgutils"
  "render|loading lod osgutils store"
  "edit|simd loading lod osgutils store store/io store/journal store/normals"
  "cull|edit loading lod osgutils store/io store/journal"
  "category|edit loading lod osgutils store store/io store/journal"
  "session|category cull edit loading lod osgutils store store/io store/journal"
  "registry|category loading lod osgutils render store store/normals"
  "headless|"
  "crs|store"
  "terminal|store"
  "viewer/display|render edit store store/journal"
  "viewer/scene|viewer/display crs terminal headless lod loading registry render store store/io store/builder store/folder store/normals edit"
  "viewer/camera|viewer/display viewer/scene viewer/settings render"
  "viewer/edit|terminal store viewer/display viewer/scene session cull edit lod render"
  "viewer/measure|terminal viewer/display viewer/gui viewer/scene viewer/edit render store"
  "viewer/operation|terminal viewer/camera viewer/display viewer/scene viewer/edit viewer/measure"
  "viewer/files|terminal viewer/scene viewer/edit viewer/settings store/export store store/io"
  "viewer/gui|"
  "viewer/panel|terminal viewer/camera viewer/files viewer/gui viewer/measure viewer/operation viewer/display viewer/scene viewer/edit viewer/settings lod render store viewer/tool category"
  "viewer/tool|"
  "viewer/window|store/io viewer/camera viewer/files viewer/measure viewer/gui viewer/panel terminal viewer/display viewer/scene viewer/edit viewer/operation viewer/settings session headless lod registry render store viewer/tool"
  "viewer/settings|terminal store"
  "viewer/picture|store/io terminal viewer/camera viewer/gui viewer/display viewer/scene viewer/window headless edit lod registry"
  "viewer/script|terminal viewer/camera viewer/files viewer/display viewer/scene viewer/edit viewer/operation viewer/picture store"
  "viewer|store/io terminal viewer/display viewer/scene viewer/settings viewer/window viewer/picture viewer/script"
  "plugin|viewer/display lod registry render"
  "tools|terminal crs store store/io store/builder store/export store/folder store/journal store/normals store/sample")
# These use each other's exported headers alone.
set(exported_only
  category>store
  category>store/io
  category>store/journal
  crs>store
  cull>store/io
  cull>store/journal
  edit>store
  edit>store/io
  edit>store/journal
  edit>store/normals
  loading>store
  loading>store/io
  plugin>lod
  plugin>registry
  plugin>render
  registry>store
  registry>store/normals
  render>store
  session>store
  session>store/io
  session>store/journal
  terminal>store
  tools>store
  tools>store/builder
  tools>store/export
  tools>store/folder
  tools>store/io
  tools>store/journal
  tools>store/normals
  tools>store/sample
  viewer>store/io
  viewer/camera>render
  viewer/display>edit
  viewer/display>render
  viewer/display>store
  viewer/display>store/journal
  viewer/edit>cull
  viewer/edit>edit
  viewer/edit>lod
  viewer/edit>render
  viewer/edit>session
  viewer/edit>store
  viewer/files>store
  viewer/files>store/export
  viewer/files>store/io
  viewer/panel>lod
  viewer/panel>render
  viewer/panel>store
  viewer/picture>edit
  viewer/picture>lod
  viewer/picture>registry
  viewer/picture>store/io
  viewer/scene>loading
  viewer/scene>lod
  viewer/scene>registry
  viewer/scene>render
  viewer/scene>store
  viewer/scene>store/builder
  viewer/scene>store/folder
  viewer/scene>store/io
  viewer/scene>store/normals
  viewer/script>store
  viewer/settings>store
  viewer/window>lod
  viewer/window>registry
  viewer/window>render
  viewer/window>session
  viewer/window>store
  viewer/window>store/io
)

set(folders "")
foreach(entry IN LISTS layers)
  string(REGEX MATCH "^[^|]+" folder "${entry}")
  list(APPEND folders ${folder})
endforeach()

# The folder of `layers` that a directory belongs to; empty for one that has none.
function(folder_of directory result)
  set(${result} "" PARENT_SCOPE)
  while(directory)
    if(directory IN_LIST folders)
      set(${result} ${directory} PARENT_SCOPE)
      return()
    endif()
    get_filename_component(directory "${directory}" DIRECTORY)
  endwhile()
endfunction()

file(GLOB_RECURSE exported RELATIVE ${ROOT}/include ${ROOT}/include/*.h)
foreach(folder IN LISTS folders)
  file(GLOB_RECURSE sources RELATIVE ${ROOT} ${ROOT}/${folder}/*.cpp)
  foreach(source IN LISTS sources)
    get_filename_component(name ${source} NAME_WE)
    get_filename_component(directory ${source} DIRECTORY)
    foreach(library VelBrx VelOsgUtils VelOsgDBBrx)
      if("${library}/${name}.h" IN_LIST exported)
        file(STRINGS ${ROOT}/${source} own REGEX "^#include <${library}/${name}.h>")
        if(own)
          folder_of(${directory} owner_${library}/${name}.h)
        endif()
      endif()
    endforeach()
  endforeach()
endforeach()

set(violations "")
# Checks one file, which belongs to `folder`.
function(check_file file folder)
  foreach(entry IN LISTS layers)
    if(entry MATCHES "^${folder}\\|(.*)$")
      string(REPLACE " " ";" allowed "${CMAKE_MATCH_1}")
    endif()
  endforeach()
  file(STRINGS ${ROOT}/${file} includes REGEX "^#include ")
  foreach(include IN LISTS includes)
    set(bad FALSE)
    if(include MATCHES "^#include \"(.+)/[^/]+\"")
      folder_of(${CMAKE_MATCH_1} target)
      if(NOT target STREQUAL folder AND (NOT target IN_LIST allowed OR "${folder}>${target}" IN_LIST exported_only))
        set(bad TRUE)
      endif()
    elseif(include MATCHES "^#include <((VelBrx|VelOsgUtils|VelOsgDBBrx)/[^>]+)>")
      set(target "${owner_${CMAKE_MATCH_1}}")
      if(target AND NOT target STREQUAL folder AND NOT target IN_LIST allowed)
        set(bad TRUE)
      endif()
    endif()
    if(folder MATCHES "^store" AND include MATCHES "<(osg|OpenThreads|GL/|EGL/|VelOsg)")
      set(bad TRUE)
    endif()
    if(bad)
      set(violations "${violations}\n  ${file}: ${include}" PARENT_SCOPE)
      set(violations "${violations}\n  ${file}: ${include}")
    endif()
  endforeach()
endfunction()

foreach(folder IN LISTS folders)
  file(GLOB_RECURSE files RELATIVE ${ROOT} ${ROOT}/${folder}/*.h ${ROOT}/${folder}/*.cpp)
  foreach(file IN LISTS files)
    get_filename_component(directory ${file} DIRECTORY)
    folder_of(${directory} owner)
    if(owner STREQUAL folder)
      check_file(${file} ${folder})
    endif()
  endforeach()
endforeach()
foreach(header IN LISTS exported)
  if(owner_${header})
    check_file(include/${header} ${owner_${header}})
  endif()
endforeach()
if(violations)
  message(FATAL_ERROR "these includes run against the layers:${violations}")
endif()
