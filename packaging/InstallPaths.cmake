# Run by `cmake --install`: fills the installed paths into the unit and the activation
# file from the prefix of this install. Input variables: SYSSRV_TEMPLATES (the .in files),
# SYSSRV_OUT (output directory), SYSSRV_SBINDIR and SYSSRV_DOCDIR (relative to the prefix
# unless absolute, as GNUInstallDirs gives them).
foreach(dir SBINDIR DOCDIR)
  if(IS_ABSOLUTE "${SYSSRV_${dir}}")
    set(SYSSRV_FULL_${dir} "${SYSSRV_${dir}}")
  else()
    set(SYSSRV_FULL_${dir} "${CMAKE_INSTALL_PREFIX}/${SYSSRV_${dir}}")
  endif()
endforeach()
foreach(template ${SYSSRV_TEMPLATES})
  get_filename_component(name "${template}" NAME)
  string(REGEX REPLACE "\\.in$" "" name "${name}")
  configure_file("${template}" "${SYSSRV_OUT}/${name}" @ONLY)
endforeach()
