# What `cmake --install` puts on a machine: the programs, the systemd unit, the bus policy,
# activation file and interface description, sysusers.d and tmpfiles.d entries, man pages,
# shell completion and the documents.
#
# The unit, the activation file and the unit's Documentation= name the installed programs
# and documents by absolute path. The prefix may still change after configuring
# (`cmake --install build --prefix /usr`), so those two files are written at install time,
# from the prefix the install actually uses.
find_package(PkgConfig REQUIRED)

# Directories that belong to the bus daemon and to systemd, not to our prefix: they read
# nothing under /usr/local. Asked from their pkg-config files where present; a cross build
# sees the target's .pc files only, which usually lack them, hence Debian's defaults.
function(syssrv_pkg_dir var module pcvar default)
  pkg_get_variable(dir ${module} ${pcvar})
  if(NOT dir)
    set(dir ${default})
  endif()
  set(${var} ${dir} CACHE PATH "Install directory: ${module} ${pcvar}")
endfunction()
syssrv_pkg_dir(SYSSRV_DBUS_DATADIR dbus-1 datadir /usr/share)
syssrv_pkg_dir(SYSSRV_SYSTEMD_UNITDIR systemd systemdsystemunitdir /lib/systemd/system)
syssrv_pkg_dir(SYSSRV_SYSUSERSDIR systemd sysusersdir /usr/lib/sysusers.d)
syssrv_pkg_dir(SYSSRV_TMPFILESDIR systemd tmpfilesdir /usr/lib/tmpfiles.d)
# Completion files are looked up under the prefix, so this one stays relative to it.
set(SYSSRV_BASH_COMPLETIONSDIR ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    CACHE PATH "Install directory of bash completion files (relative: under the prefix)")

install(TARGETS SysSrv.elf RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS syssrvctl syssrv-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# --- files that name installed paths: written at install time -------------------------
set(SYSSRV_INSTALL_TEMPLATES
    ${CMAKE_SOURCE_DIR}/packaging/syssrv.service.in
    ${CMAKE_SOURCE_DIR}/packaging/syssrv-bridge.service.in
    ${CMAKE_SOURCE_DIR}/packaging/com.torvane.akku.SysService.service.in)
install(CODE "
  set(SYSSRV_TEMPLATES \"${SYSSRV_INSTALL_TEMPLATES}\")
  set(SYSSRV_OUT \"${CMAKE_BINARY_DIR}/packaging/installed\")
  set(SYSSRV_SBINDIR \"${CMAKE_INSTALL_SBINDIR}\")
  set(SYSSRV_DOCDIR \"${CMAKE_INSTALL_DOCDIR}\")
  include(\"${CMAKE_SOURCE_DIR}/packaging/InstallPaths.cmake\")
  file(INSTALL \"\${SYSSRV_OUT}/syssrv.service\" \"\${SYSSRV_OUT}/syssrv-bridge.service\"
       DESTINATION \"${SYSSRV_SYSTEMD_UNITDIR}\")
  file(INSTALL \"\${SYSSRV_OUT}/com.torvane.akku.SysService.service\"
       DESTINATION \"${SYSSRV_DBUS_DATADIR}/dbus-1/system-services\")
")

install(FILES ${CMAKE_SOURCE_DIR}/packaging/com.torvane.akku.SysService.conf
        DESTINATION ${SYSSRV_DBUS_DATADIR}/dbus-1/system.d)
# Where client developers and code generators look for the interface.
install(FILES ${CMAKE_SOURCE_DIR}/src/BusInterface.xml
        DESTINATION ${SYSSRV_DBUS_DATADIR}/dbus-1/interfaces
        RENAME com.torvane.akku.SysInterface.xml)
install(FILES ${CMAKE_SOURCE_DIR}/packaging/syssrv.sysusers
        DESTINATION ${SYSSRV_SYSUSERSDIR} RENAME syssrv.conf)
install(FILES ${CMAKE_SOURCE_DIR}/packaging/syssrv.tmpfiles
        DESTINATION ${SYSSRV_TMPFILESDIR} RENAME syssrv.conf)
# The plant feed's user and its queue directory.
install(FILES ${CMAKE_SOURCE_DIR}/packaging/syssrv-bridge.sysusers
        DESTINATION ${SYSSRV_SYSUSERSDIR} RENAME syssrv-bridge.conf)
install(FILES ${CMAKE_SOURCE_DIR}/packaging/syssrv-bridge.tmpfiles
        DESTINATION ${SYSSRV_TMPFILESDIR} RENAME syssrv-bridge.conf)
install(FILES ${CMAKE_SOURCE_DIR}/packaging/completion/syssrvctl
              ${CMAKE_SOURCE_DIR}/packaging/completion/syssrv-sim
        DESTINATION ${SYSSRV_BASH_COMPLETIONSDIR})
install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}
        FILES_MATCHING PATTERN "*.md")

# --- man pages ----------------------------------------------------------------------
# Written once in scdoc and turned into roff at build time. SYSSRV_MANPAGES=AUTO builds
# them when scdoc is there; ON makes a missing scdoc an error (the packages need them).
set(SYSSRV_MANPAGES AUTO CACHE STRING "Build the man pages with scdoc: AUTO, ON or OFF")
find_program(SCDOC scdoc)
if(SYSSRV_MANPAGES STREQUAL "ON" AND NOT SCDOC)
  message(FATAL_ERROR "SYSSRV_MANPAGES=ON but scdoc is not installed (scripts/deps.sh)")
endif()
if(SCDOC AND NOT SYSSRV_MANPAGES STREQUAL "OFF")
  set(SYSSRV_MAN_OUTPUTS "")
  foreach(page SysSrv.elf.8 syssrvctl.1 syssrv-sim.1 syssrv-bridge.8)
    set(src ${CMAKE_SOURCE_DIR}/packaging/man/${page}.scd)
    set(out ${CMAKE_BINARY_DIR}/man/${page})
    add_custom_command(OUTPUT ${out}
      COMMAND ${SCDOC} < ${src} > ${out}
      DEPENDS ${src}
      COMMENT "Man page ${page}")
    list(APPEND SYSSRV_MAN_OUTPUTS ${out})
    string(REGEX MATCH "[0-9]$" section ${page})
    install(FILES ${out} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
  endforeach()
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/man)
  add_custom_target(manpages ALL DEPENDS ${SYSSRV_MAN_OUTPUTS})
else()
  message(STATUS "scdoc not found or SYSSRV_MANPAGES=OFF: no man pages")
endif()
