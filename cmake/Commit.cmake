# The target velbrx_commit: `buildCommit()` of terminal/Commit.h. It is looked up with every build, and compiled when it is
# another one.
set(commit_cpp ${PROJECT_BINARY_DIR}/Commit.cpp)
add_custom_target(velbrx_find_commit BYPRODUCTS ${commit_cpp}
  COMMAND ${CMAKE_COMMAND} -DOUTPUT=${commit_cpp} -DSOURCE=${PROJECT_SOURCE_DIR}
    -P ${PROJECT_SOURCE_DIR}/cmake/WriteCommit.cmake)
add_library(velbrx_commit STATIC ${commit_cpp})
target_include_directories(velbrx_commit PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(velbrx_commit PRIVATE velbrx_options)
add_dependencies(velbrx_commit velbrx_find_commit)
