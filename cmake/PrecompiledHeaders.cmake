# Headers that most files of a target include and that take long to read are compiled once. Every file still includes
# what it uses: the sanitizer presets build without this.
option(VELBRX_PRECOMPILED_HEADERS "Compile heavy headers once for each target" ON)

set(velbrx_std_headers <algorithm> <array> <atomic> <cmath> <cstdint> <cstring> <filesystem> <functional> <limits>
  <map> <memory> <mutex> <optional> <string> <thread> <vector>)
set(velbrx_osg_headers <osg/Geometry> <osg/MatrixTransform> <osgUtil/CullVisitor> <osgViewer/Viewer>)

# ccache must know that compiled headers, and the times in them, do not change what comes out.
if(CCACHE_PROGRAM AND VELBRX_PRECOMPILED_HEADERS AND CMAKE_CXX_COMPILER_LAUNCHER STREQUAL CCACHE_PROGRAM)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE_PROGRAM})
endif()

# velbrx_precompile(<target> <headers...>)
function(velbrx_precompile target)
  if(VELBRX_PRECOMPILED_HEADERS)
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()

# velbrx_share_precompiled(<target> FROM <name> HEADERS <headers...> DEPENDS <targets...>): the headers are compiled once
# for all targets that name the same target <name>, which the first call makes.
function(velbrx_share_precompiled target)
  cmake_parse_arguments(ARG "" "FROM" "HEADERS;DEPENDS" ${ARGN})
  if(NOT VELBRX_PRECOMPILED_HEADERS)
    return()
  endif()
  if(NOT TARGET ${ARG_FROM})
    file(WRITE ${PROJECT_BINARY_DIR}/${ARG_FROM}.cpp "")
    add_library(${ARG_FROM} OBJECT ${PROJECT_BINARY_DIR}/${ARG_FROM}.cpp)
    target_link_libraries(${ARG_FROM} PRIVATE velbrx_options ${ARG_DEPENDS})
    target_compile_options(${ARG_FROM} PRIVATE $<TARGET_PROPERTY:${target},COMPILE_OPTIONS>)
    target_precompile_headers(${ARG_FROM} PRIVATE ${ARG_HEADERS})
  endif()
  target_precompile_headers(${target} REUSE_FROM ${ARG_FROM})
endfunction()
