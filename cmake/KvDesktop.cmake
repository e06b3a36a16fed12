# What the programs bring besides themselves: units, manual pages, completion, the entry in the desktop's menu.

install(FILES apps/flightserver/systemd/flightserver.service apps/flightdesk/systemd/flightdesk-station@.service
  DESTINATION lib/systemd/system COMPONENT apps)
install(FILES docs/fleet.md docs/server.md docs/server-protocol.md docs/station.md
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${apps_package} COMPONENT apps)

find_program(KV_HELP2MAN help2man REQUIRED)
add_custom_target(man_pages ALL
  COMMAND ${PROJECT_SOURCE_DIR}/cmake/man-pages.sh ${CMAKE_RUNTIME_OUTPUT_DIRECTORY} ${PROJECT_BINARY_DIR}/man
  VERBATIM)
install(DIRECTORY ${PROJECT_BINARY_DIR}/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT apps)

set(completions ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
foreach(program flightdesk flightserver)
  install(FILES apps/completion/flightdesk.bash DESTINATION ${completions} RENAME ${program} COMPONENT apps)
endforeach()

install(FILES apps/flightdesk/desktop/flightdesk.desktop
  DESTINATION ${CMAKE_INSTALL_DATADIR}/applications COMPONENT apps)
install(FILES apps/flightdesk/desktop/flightdesk.metainfo.xml
  DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo RENAME example.kvprojectdboperator.flightdesk.metainfo.xml COMPONENT apps)
install(FILES apps/flightdesk/desktop/flightdesk.svg
  DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps COMPONENT apps)
