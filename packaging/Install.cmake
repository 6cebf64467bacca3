# Installs the bus policy, the bus activation file and the systemd unit. The bus files go
# where today's dbus-daemon reads them (the datadir of dbus-1, normally /usr/share), never
# under /usr/local, whatever the install prefix.
find_package(PkgConfig REQUIRED)
pkg_get_variable(SYSSRV_DBUS_DATADIR dbus-1 datadir)
if(NOT SYSSRV_DBUS_DATADIR)
  set(SYSSRV_DBUS_DATADIR /usr/share)
endif()
pkg_get_variable(SYSSRV_SYSTEMD_UNITDIR systemd systemdsystemunitdir)
if(NOT SYSSRV_SYSTEMD_UNITDIR)
  set(SYSSRV_SYSTEMD_UNITDIR /lib/systemd/system)
endif()

configure_file(${CMAKE_SOURCE_DIR}/packaging/syssrv.service.in
               ${CMAKE_BINARY_DIR}/packaging/syssrv.service @ONLY)

install(FILES ${CMAKE_SOURCE_DIR}/packaging/com.torvane.akku.SysService.conf
        DESTINATION ${SYSSRV_DBUS_DATADIR}/dbus-1/system.d)
install(FILES ${CMAKE_SOURCE_DIR}/packaging/com.torvane.akku.SysService.service
        DESTINATION ${SYSSRV_DBUS_DATADIR}/dbus-1/system-services)
install(FILES ${CMAKE_BINARY_DIR}/packaging/syssrv.service
        DESTINATION ${SYSSRV_SYSTEMD_UNITDIR})
install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}
        FILES_MATCHING PATTERN "*.md")
