# Installation: the two shared libraries with their SONAMEs, the public and the framework headers,
# a CMake package (find_package(IpmiEventLog CONFIG) -> IpmiEventLog::ipmi_event_log), a pkg-config
# file, and a Debian package through CPack (the tool, its systemd units and their files under /etc
# are installed by tools/CMakeLists.txt).
include(CMakePackageConfigHelpers)

set(IPMI_EVENT_LOG_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/IpmiEventLog)

install(TARGETS ipmi_event_log tolmar_framework
    EXPORT IpmiEventLogTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(FILES include/IpmiEventLog.h include/IpmiEventFollower.h include/IpmiConnectionSettings.h
              include/IpmiPlatformExtensions.h include/IpmiSelDecoding.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ipmi_event_log COMPONENT development)
install(FILES framework/include/IpmiClient.h framework/include/IpmiClientActivity.h
              framework/include/IpmiClientSettings.h framework/include/IpmiException.h
              framework/include/Log.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tolmar_framework COMPONENT development)
install(EXPORT IpmiEventLogTargets NAMESPACE IpmiEventLog::
    DESTINATION ${IPMI_EVENT_LOG_CMAKE_DIR} COMPONENT development)

configure_package_config_file(cmake/IpmiEventLogConfig.cmake.in
    ${PROJECT_BINARY_DIR}/IpmiEventLogConfig.cmake
    INSTALL_DESTINATION ${IPMI_EVENT_LOG_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/IpmiEventLogConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/IpmiEventLogConfig.cmake
              ${PROJECT_BINARY_DIR}/IpmiEventLogConfigVersion.cmake
    DESTINATION ${IPMI_EVENT_LOG_CMAKE_DIR} COMPONENT development)

# The .pc file finds the prefix from its own place, so the installed tree can be moved.
file(RELATIVE_PATH IPMI_EVENT_LOG_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
     ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/ipmi_event_log.pc.in ${PROJECT_BINARY_DIR}/ipmi_event_log.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ipmi_event_log.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

set(CPACK_PACKAGE_NAME ipmi-event-log)
set(CPACK_PACKAGE_VENDOR "Tolmar")
set(CPACK_PACKAGE_CONTACT "Tolmar maintainers <maintainers@tolmar.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "IPMI event log library: reads and decodes a BMC's System Event Log")
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The services' files under /etc are the operator's (conffiles: an upgrade keeps their changes);
# the maintainer scripts make the group the services read them through. groupadd is passwd's; the
# libraries' dependencies are added to this by dpkg-shlibdeps.
set(CPACK_DEBIAN_PACKAGE_DEPENDS passwd)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/conffiles
    ${PROJECT_SOURCE_DIR}/cmake/debian/postinst ${PROJECT_SOURCE_DIR}/cmake/debian/prerm
    ${PROJECT_SOURCE_DIR}/cmake/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
include(CPack)
