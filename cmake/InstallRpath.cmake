# velbrx_install_rpath(<target> <folder below the prefix that it is installed in>): it finds the libraries wherever the
# prefix is moved to. Below /usr the system's loader finds them, and no package there says where itself.
function(velbrx_install_rpath target folder)
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    return()
  endif()
  file(RELATIVE_PATH up /${folder} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${up}")
endfunction()
