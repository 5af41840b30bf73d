# Run by `cmake --install` and CPack (component runtime): the systemd units and the files under
# etc that they name. Their paths depend on the prefix the install is made with, which is only
# known now: etc is /etc for the prefix /usr (the Debian package), as GNUInstallDirs has it, and
# PREFIX/etc for any other, so that an install into a scratch prefix writes nothing outside it.
# The install(CODE) before this script sets IPMI_EVENT_LOG_SERVICE_SOURCE (tools/service in the
# source tree), IPMI_EVENT_LOG_SERVICE_BINARY (a directory of the build tree for the units made
# here) and IPMI_EVENT_LOG_BINDIR (bin, or another relative directory).
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(SYSCONFDIR /etc)
else()
    set(SYSCONFDIR ${CMAKE_INSTALL_PREFIX}/etc)
endif()
set(BINDIR ${CMAKE_INSTALL_PREFIX}/${IPMI_EVENT_LOG_BINDIR})

foreach(unit ipmi-event-log-exporter.service ipmi-event-log-follow.service)
    configure_file(${IPMI_EVENT_LOG_SERVICE_SOURCE}/${unit}.in
        ${IPMI_EVENT_LOG_SERVICE_BINARY}/${unit} @ONLY)
    file(INSTALL ${IPMI_EVENT_LOG_SERVICE_BINARY}/${unit}
        DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
endforeach()
# The exporter's modules name the BMCs' passwords: readable by root and the group the services
# read them through, no one else.
file(INSTALL ${IPMI_EVENT_LOG_SERVICE_SOURCE}/config.yml
    DESTINATION ${SYSCONFDIR}/ipmi-event-log
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ)
file(INSTALL ${IPMI_EVENT_LOG_SERVICE_SOURCE}/ipmi-event-log-follow.default
    DESTINATION ${SYSCONFDIR}/default RENAME ipmi-event-log-follow
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
