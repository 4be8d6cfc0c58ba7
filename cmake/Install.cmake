# Installation layout (GNUInstallDirs) and the Debian package.
foreach(program wrenfold-helper openmeta wf-plutil wf-defaults)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

# The OpenMeta store for other programs: static library, public headers and
# wrenfold-openmeta.pc (see src/openmeta/CMakeLists.txt for why static).
if(TARGET wrenfold_openmeta)
  install(TARGETS wrenfold_openmeta ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
          COMPONENT openmeta-dev)
  foreach(header IN LISTS WF_OPENMETA_PUBLIC_HEADERS)
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${PROJECT_SOURCE_DIR}/src/${header}
            DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/wrenfold-openmeta/${folder}
            COMPONENT openmeta-dev)
  endforeach()
  install(FILES ${PROJECT_BINARY_DIR}/wrenfold-openmeta.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT openmeta-dev)
endif()

# Resources: an installed helper finds them in share/wrenfold-helper beside bin/.
install(FILES ${PROJECT_SOURCE_DIR}/resources/Info.plist
        DESTINATION ${CMAKE_INSTALL_DATADIR}/wrenfold-helper)
file(GLOB WF_TEXT_RESOURCES ${PROJECT_SOURCE_DIR}/resources/*.txt)
if(WF_TEXT_RESOURCES)
  install(FILES ${WF_TEXT_RESOURCES} DESTINATION ${CMAKE_INSTALL_DATADIR}/wrenfold-helper)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/resources/bash-completion/wrenfold-helper
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
file(GLOB WF_DBUS_INTERFACES ${PROJECT_SOURCE_DIR}/resources/dbus/*.xml)
install(FILES ${WF_DBUS_INTERFACES} DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/interfaces)

# The systemd user unit and the D-Bus activation file name the binary where
# it is installed. The prefix is known only when installing (cpack installs
# with its own packaging prefix, whatever the build tree was configured
# with), so both files are written then.
set(WF_STARTER_FILES
    "${PROJECT_SOURCE_DIR}/resources/systemd/wrenfold-helper.service.in|lib/systemd/user/wrenfold-helper.service"
    "${PROJECT_SOURCE_DIR}/resources/dbus-service/org.ardel.WrenfoldHelper.service.in|${CMAKE_INSTALL_DATADIR}/dbus-1/services/org.ardel.WrenfoldHelper.service")
foreach(entry IN LISTS WF_STARTER_FILES)
  string(REPLACE "|" ";" pair "${entry}")
  list(GET pair 0 template)
  list(GET pair 1 destination)
  install(CODE "
    set(WF_UNIT_BINDIR \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
    set(target \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${destination}\")
    configure_file(\"${template}\" \"\${target}\" @ONLY)
    file(CHMOD \"\${target}\" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    message(STATUS \"Installing: \${target}\")")
endforeach()

# Manual pages, compressed as Debian wants them.
file(GLOB WF_MAN_PAGES ${PROJECT_SOURCE_DIR}/docs/man/*.1)
foreach(page IN LISTS WF_MAN_PAGES)
  get_filename_component(name ${page} NAME)
  set(gz ${PROJECT_BINARY_DIR}/man/${name}.gz)
  add_custom_command(OUTPUT ${gz}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
    COMMAND gzip -9nc ${page} > ${gz}
    DEPENDS ${page} VERBATIM)
  list(APPEND WF_MAN_GZ ${gz})
endforeach()
if(WF_MAN_GZ)
  add_custom_target(wf-man-pages ALL DEPENDS ${WF_MAN_GZ})
  install(FILES ${WF_MAN_GZ} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

# Debian's documentation files.
install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/wrenfold-helper)
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/changelog.gz
  COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/packaging/changelog > ${PROJECT_BINARY_DIR}/changelog.gz
  DEPENDS ${PROJECT_SOURCE_DIR}/packaging/changelog VERBATIM)
add_custom_target(wf-changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/changelog.gz)
install(FILES ${PROJECT_BINARY_DIR}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/wrenfold-helper)

# "defaults" is offered only where no other defaults command exists.
if(TARGET wf-defaults)
  install(CODE "
    # The prefix of this installation (cmake --install --prefix), not the configured one.
    set(bindir \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
    find_program(WF_OTHER_DEFAULTS defaults NO_CACHE)
    if(NOT WF_OTHER_DEFAULTS AND NOT EXISTS \"\${bindir}/defaults\" AND \"\$ENV{DESTDIR}\" STREQUAL \"\")
      execute_process(COMMAND \${CMAKE_COMMAND} -E create_symlink wf-defaults \"\${bindir}/defaults\")
      message(STATUS \"Installing: \${bindir}/defaults -> wf-defaults\")
      set(mandir \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man1\")
      if(EXISTS \"\${mandir}/wf-defaults.1.gz\" AND NOT EXISTS \"\${mandir}/defaults.1.gz\")
        execute_process(COMMAND \${CMAKE_COMMAND} -E create_symlink wf-defaults.1.gz \"\${mandir}/defaults.1.gz\")
      endif()
    endif()")
endif()

set(CPACK_PACKAGE_NAME wrenfold-helper)
set(CPACK_PACKAGE_VENDOR "WrenfoldHelper developers")
set(CPACK_PACKAGE_CONTACT "WrenfoldHelper developers <dev@wrenfold.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "background agent of the Wrenfold mail plug-in")
set(CPACK_PACKAGE_DESCRIPTION
    "WrenfoldHelper keeps the Wrenfold plug-in's list files in step with a\n sync folder, imports project lists from task managers and the file\n manager's tag list, and reconciles OpenMeta tags on mail messages.\n It also provides the openmeta, wf-plutil and wf-defaults tools.")
set(CPACK_DEBIAN_PACKAGE_SECTION mail)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The helper needs a session bus; its user unit, sandboxed without a
# network, reaches it only as the user bus of dbus-user-session.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "dbus-user-session | dbus-x11")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "dbus-user-session, systemd")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/postinst ${PROJECT_SOURCE_DIR}/packaging/prerm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
