# Installs the files whose place or text depends on the prefix given at install time (cmake
# --install --prefix, DESTDIR, cpack): the systemd unit, whose ExecStart names the installed
# daemon, and the configuration file. Included by cmake_install.cmake after the install(CODE)
# of packaging/CMakeLists.txt has set JOURNAL_UNIT_TEMPLATE, JOURNAL_CONF_FILE, JOURNAL_STAGING,
# JOURNAL_BINDIR, JOURNAL_SYSCONFDIR and JOURNAL_DOCDIR (the last three relative to the prefix).

# Below /usr the configuration goes to /etc, as GNUInstallDirs places it; elsewhere under the prefix.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(journal_etc "/etc/calljournal")
else()
  set(journal_etc "${CMAKE_INSTALL_PREFIX}/${JOURNAL_SYSCONFDIR}/calljournal")
endif()

set(JOURNAL_BINDIR "${CMAKE_INSTALL_PREFIX}/${JOURNAL_BINDIR}")
set(JOURNAL_DOCDIR "${CMAKE_INSTALL_PREFIX}/${JOURNAL_DOCDIR}")
set(JOURNAL_CONFIG "${journal_etc}/calljournald.conf")
configure_file("${JOURNAL_UNIT_TEMPLATE}" "${JOURNAL_STAGING}/calljournald.service" @ONLY)
file(INSTALL DESTINATION "${CMAKE_INSTALL_PREFIX}/lib/systemd/system" TYPE FILE
     FILES "${JOURNAL_STAGING}/calljournald.service")

# An administrator's configuration is kept: a new one is only written where none is.
if(EXISTS "$ENV{DESTDIR}${JOURNAL_CONFIG}")
  message(STATUS "Kept: $ENV{DESTDIR}${JOURNAL_CONFIG} (calljournald --print-config prints the new defaults)")
else()
  file(INSTALL DESTINATION "${journal_etc}" TYPE FILE FILES "${JOURNAL_CONF_FILE}")
endif()
