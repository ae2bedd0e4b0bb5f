# The names under which the executable is installed are the rows of the table in applets/main.cpp, and of no list
# beside it. "ncemd" has no row: every name without one is the event daemon.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS applets/main.cpp)
file(STRINGS applets/main.cpp role_rows REGEX "^    {\"[a-z0-9_.]+\", ")
list(TRANSFORM role_rows REPLACE "^    {\"([a-z0-9_.]+)\".*" "\\1" OUTPUT_VARIABLE NORV_ROLES)
list(APPEND NORV_ROLES ncemd)

include(GNUInstallDirs)

# Installs the executable once, with a symbolic link beside it for every role: CGI roles go where the web server
# looks for them, daemons and tools to the system programs.
function(install_roles executable)
  set(program_dir ${CMAKE_INSTALL_SBINDIR})
  set(cgi_dir ${CMAKE_INSTALL_LIBDIR}/norv/cgi-bin)
  install(TARGETS ${executable} RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/norv)
  set(links ${CMAKE_BINARY_DIR}/links)
  file(MAKE_DIRECTORY ${links}/program ${links}/cgi)
  foreach(role ${NORV_ROLES})
    if(role MATCHES "\\.cgi$")
      set(kind cgi)
      set(from ${cgi_dir})
    else()
      set(kind program)
      set(from ${program_dir})
    endif()
    file(RELATIVE_PATH target /${from} /${CMAKE_INSTALL_LIBEXECDIR}/norv/norv)
    file(CREATE_LINK ${target} ${links}/${kind}/${role} SYMBOLIC)
    install(FILES ${links}/${kind}/${role} DESTINATION ${${kind}_dir})
  endforeach()
  # The upgrade calls this one by a path of its own.
  file(CREATE_LINK ../../${CMAKE_INSTALL_LIBEXECDIR}/norv/norv ${links}/norvcodesign SYMBOLIC)
  install(FILES ${links}/norvcodesign DESTINATION norv/bin)
endfunction()
