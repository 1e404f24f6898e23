# What every target of this project shares: language level, warnings, sanitizers, OpenMP.
add_library(velbrx_options INTERFACE)
target_compile_features(velbrx_options INTERFACE cxx_std_17)
target_compile_options(velbrx_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor)
# A coordinate is the same number wherever it is computed, on processors with fused multiply-add too.
target_compile_options(velbrx_options INTERFACE -ffp-contract=off)
if(VELBRX_WARNINGS_AS_ERRORS)
  target_compile_options(velbrx_options INTERFACE -Werror)
endif()
if(VELBRX_SANITIZER STREQUAL "address")
  target_compile_options(velbrx_options INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  target_link_options(velbrx_options INTERFACE -fsanitize=address,undefined)
elseif(VELBRX_SANITIZER STREQUAL "thread")
  target_compile_options(velbrx_options INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(velbrx_options INTERFACE -fsanitize=thread)
elseif(VELBRX_SANITIZER)
  message(FATAL_ERROR "VELBRX_SANITIZER must be empty, address or thread, not '${VELBRX_SANITIZER}'")
endif()
if(VELBRX_OPENMP)
  find_package(OpenMP REQUIRED COMPONENTS CXX)
  target_link_libraries(velbrx_options INTERFACE OpenMP::OpenMP_CXX)
else()
  target_compile_options(velbrx_options INTERFACE -Wno-unknown-pragmas)
endif()

# What is promised to stay the same: below 1.0 a minor version, then a major one. Also what the CMake package promises.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(velbrx_abi_version ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  set(velbrx_compatibility SameMinorVersion)
else()
  set(velbrx_abi_version ${PROJECT_VERSION_MAJOR})
  set(velbrx_compatibility SameMajorVersion)
endif()

# velbrx_headers(<name> HEADERS <include folder> EXPORT <export set>): a library of installed headers alone.
function(velbrx_headers name)
  cmake_parse_arguments(ARG "" "HEADERS;EXPORT" "" ${ARGN})
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/${ARG_HEADERS}/*.h)
  add_library(${name} INTERFACE)
  target_sources(${name} INTERFACE FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR}/include FILES ${headers})
  target_compile_features(${name} INTERFACE cxx_std_17)
  set_target_properties(${name} PROPERTIES VERIFY_INTERFACE_HEADER_SETS ON)
  velbrx_install_library(${name} ${ARG_EXPORT})
endfunction()

# velbrx_install_library(<name> <export set>): libraries for those who run programs, links and headers for those who
# build some.
function(velbrx_install_library name export)
  if(VELBRX_INSTALL)
    install(TARGETS ${name} EXPORT ${export}
      LIBRARY COMPONENT runtime NAMELINK_COMPONENT development FILE_SET HEADERS COMPONENT development)
  endif()
endfunction()

# velbrx_library(<name> HEADERS <include folder> EXPORT <export set> DEPENDS <targets...> INTERNAL_DEPENDS <targets...>)
# Declares a library of which <name> is the installed form with hidden internals, shared unless BUILD_SHARED_LIBS is off,
# and <name>_internal a static form of the same object files whose internals tests may call.
# The folders add their sources with target_sources(<name>_objects PRIVATE ...).
function(velbrx_library name)
  cmake_parse_arguments(ARG "" "HEADERS;EXPORT" "DEPENDS;INTERNAL_DEPENDS" ${ARGN})
  add_library(${name}_objects OBJECT)
  set_target_properties(${name}_objects PROPERTIES POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_include_directories(${name}_objects PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name}_objects PUBLIC velbrx_options ${ARG_INTERNAL_DEPENDS})

  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/${ARG_HEADERS}/*.h)
  add_library(${name})
  add_library(VelOsgDBBrx::${name} ALIAS ${name})
  target_sources(${name} PRIVATE $<TARGET_OBJECTS:${name}_objects>
    PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR}/include FILES ${headers})
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX VERSION ${PROJECT_VERSION}
    SOVERSION ${velbrx_abi_version} VERIFY_INTERFACE_HEADER_SETS ON)
  target_compile_features(${name} PUBLIC cxx_std_17)
  target_link_options(${name} PRIVATE -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map)
  target_link_libraries(${name} PUBLIC ${ARG_DEPENDS} PRIVATE $<BUILD_INTERFACE:velbrx_options>)
  velbrx_install_rpath(${name} ${CMAKE_INSTALL_LIBDIR})
  velbrx_install_library(${name} ${ARG_EXPORT})

  add_library(${name}_internal STATIC $<TARGET_OBJECTS:${name}_objects>)
  set_target_properties(${name}_internal PROPERTIES LINKER_LANGUAGE CXX)
  target_include_directories(${name}_internal PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name}_internal PUBLIC velbrx_options ${ARG_INTERNAL_DEPENDS})
endfunction()

# velbrx_program(<name> SOURCES <files...> DEPENDS <targets...>): an installed executable.
function(velbrx_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE velbrx_options velbrx_commit ${ARG_DEPENDS})
  velbrx_install_rpath(${name} ${CMAKE_INSTALL_BINDIR})
  if(VELBRX_INSTALL)
    install(TARGETS ${name} COMPONENT programs)
  endif()
endfunction()

# velbrx_test(<name> SOURCES <files...> DEPENDS <targets...>): a GoogleTest program; every case is a CTest test. Its own
# code is optimised less than the library's: it is compiled more often than its loops run.
function(velbrx_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE velbrx_options ${ARG_DEPENDS} GTest::gtest_main)
  target_compile_options(${name} PRIVATE $<$<CONFIG:RelWithDebInfo>:-O1>
    $<$<CXX_COMPILER_ID:Clang>:-Wno-thread-safety>) # of what they look into nobody else knows
  if(CMAKE_CURRENT_SOURCE_DIR MATCHES "/tests/(store|tools|crs)")
    velbrx_share_precompiled(${name} FROM velbrx_store_test_headers
      HEADERS ${velbrx_std_headers} <gtest/gtest.h> DEPENDS GTest::gtest)
  else()
    velbrx_share_precompiled(${name} FROM velbrx_osg_test_headers
      HEADERS ${velbrx_std_headers} ${velbrx_osg_headers} <gtest/gtest.h> DEPENDS GTest::gtest osg3::osgViewer)
  endif()
  foreach(source IN LISTS ARG_SOURCES)
    get_filename_component(path ${source} ABSOLUTE)
    set_property(GLOBAL APPEND PROPERTY VELBRX_TEST_SOURCES ${path})
  endforeach()
  # Memory that was given back is overwritten: libraries that no sanitizer looks into show what uses it still.
  gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 300 ENVIRONMENT MALLOC_PERTURB_=165)
endfunction()
