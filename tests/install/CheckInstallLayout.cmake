# Installs the build tree under a staging directory with an install-time prefix, as the
# board's image and the packages do, and checks that the unit and the activation file name
# the programs where this install put them. Run by CTest:
#   cmake -DBUILD=<build dir> -DSTAGE=<scratch dir> -P CheckInstallLayout.cmake
# Reading the unit directory from the cache keeps the check to what the build configured.
file(STRINGS "${BUILD}/CMakeCache.txt" unitdir_line REGEX "^SYSSRV_SYSTEMD_UNITDIR:")
file(STRINGS "${BUILD}/CMakeCache.txt" dbusdir_line REGEX "^SYSSRV_DBUS_DATADIR:")
string(REGEX REPLACE "^[^=]*=" "" unitdir "${unitdir_line}")
string(REGEX REPLACE "^[^=]*=" "" dbusdir "${dbusdir_line}")

function(expect_line file regex)
  file(STRINGS "${file}" hits REGEX "${regex}")
  if(NOT hits)
    file(READ "${file}" text)
    message(FATAL_ERROR "${file} has no line matching '${regex}':\n${text}")
  endif()
endfunction()

# The prefix given at install time must win over the configure-time one, whichever it is.
foreach(prefix /usr /opt/syssrv)
  set(dest "${STAGE}${prefix}")
  file(REMOVE_RECURSE "${dest}")
  execute_process(
    COMMAND ${CMAKE_COMMAND} -E env DESTDIR=${dest}
            ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix}
    RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE errors)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "install with --prefix ${prefix} failed:\n${errors}")
  endif()
  set(unit "${dest}${unitdir}/syssrv.service")
  set(activation "${dest}${dbusdir}/dbus-1/system-services/com.torvane.akku.SysService.service")
  expect_line("${unit}" "^ExecStart=${prefix}/sbin/SysSrv\\.elf$")
  expect_line("${unit}" "^Documentation=.*file://${prefix}/share/doc/syssrv/operations\\.md")
  expect_line("${activation}" "^Exec=${prefix}/sbin/SysSrv\\.elf$")
  expect_line("${dest}${unitdir}/syssrv-bridge.service" "^ExecStart=${prefix}/sbin/syssrv-bridge$")
  # What they name is really there.
  foreach(installed sbin/SysSrv.elf share/doc/syssrv/operations.md bin/syssrvctl bin/syssrv-sim
                    sbin/syssrv-bridge)
    if(NOT EXISTS "${dest}${prefix}/${installed}")
      message(FATAL_ERROR "${prefix}/${installed} was not installed")
    endif()
  endforeach()
  foreach(installed ${dbusdir}/dbus-1/interfaces/com.torvane.akku.SysInterface.xml
                    ${dbusdir}/dbus-1/system.d/com.torvane.akku.SysService.conf)
    if(NOT EXISTS "${dest}${installed}")
      message(FATAL_ERROR "${installed} was not installed")
    endif()
  endforeach()
  file(REMOVE_RECURSE "${dest}")
endforeach()
message(STATUS "unit and activation file follow the install prefix")
