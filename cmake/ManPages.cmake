# velbrx_man_page(<program> <command or ""> <what it is for>): a page made of the program's own help, where help2man is
# there.
find_program(HELP2MAN help2man)
mark_as_advanced(HELP2MAN)

function(velbrx_man_page program command words)
  if(NOT HELP2MAN)
    return()
  endif()
  string(JOIN "-" page ${program} ${command})
  string(JOIN " " call $<TARGET_FILE:${program}> ${command})
  add_custom_command(OUTPUT ${page}.1.gz DEPENDS ${program} VERBATIM
    COMMAND ${HELP2MAN} --no-info --name=${words} --version-string=${PROJECT_VERSION} --output=${page}.1 ${call}
    COMMAND sed -i "s/^${program} ${command} .- /${page} - /" ${page}.1 # a name of one word, for whatis
    COMMAND gzip -9nf ${page}.1)
  add_custom_target(${page}_man ALL DEPENDS ${page}.1.gz)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${page}.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT programs)
endfunction()
