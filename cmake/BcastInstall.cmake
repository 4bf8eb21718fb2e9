# Install rules, the framework's CMake package and pkg-config file, and the Debian packages (CPack).
#
# Components, one Debian package each:
#   framework  bcast-framework      the framework libraries (private directory lib/<arch>/bcast)
#   dev        bcast-framework-dev  their headers, the CMake package BcastFramework and bcast-framework.pc
#   client     bcast-client         bcast-host, the module, the web pages, /etc/bcast/client.json
#   platform   bcast-platform       bcast-platform, bcast-devsim, the demo fixtures, the systemd unit
#   tools      bcast-tools          bcast-tool
# Each package carries the docs, a copyright file and a changelog in /usr/share/doc/<package>.

include(CMakePackageConfigHelpers)

set(BCAST_FRAMEWORK_LIBS tal_base tal_secret tal_netcomm tal_clientframe tal_business tal_resource tal_mediakit
  tal_errortext tal_wuicontrol tal_webengine tal_codec tal_audiocom tal_pcmstorage tal_devnet tal_zpsclient
  tal_videotool tal_objectclient)
set(BCAST_ETCDIR ${CMAKE_INSTALL_FULL_SYSCONFDIR}/bcast)
set(BCAST_STATEDIR ${CMAKE_INSTALL_FULL_LOCALSTATEDIR}/lib/bcast)
set(BCAST_DATADIR ${CMAKE_INSTALL_DATADIR}/bcast)

# The framework libraries and their headers.
install(TARGETS bcast_settings ${BCAST_FRAMEWORK_LIBS} EXPORT BcastFrameworkTargets
  LIBRARY DESTINATION ${BCAST_PRIVATE_LIBDIR} COMPONENT framework NAMELINK_COMPONENT dev)
# Codec plug-ins, loaded by tal_codec from its own directory (no link target, no development link).
install(TARGETS tal_codec_aac LIBRARY DESTINATION ${BCAST_PRIVATE_LIBDIR} COMPONENT framework NAMELINK_SKIP)
install(DIRECTORY src/framework/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/bcast/framework COMPONENT dev
  FILES_MATCHING PATTERN "*.h")
install(FILES src/BroadCastPlugin/BroadCastPluginExports.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/bcast/BroadCastPlugin COMPONENT dev)
set(BCAST_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/BcastFramework)
install(EXPORT BcastFrameworkTargets NAMESPACE Bcast:: DESTINATION ${BCAST_CMAKE_DIR} COMPONENT dev)
configure_package_config_file(packaging/BcastFrameworkConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/packaging/BcastFrameworkConfig.cmake INSTALL_DESTINATION ${BCAST_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/packaging/BcastFrameworkConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/packaging/BcastFrameworkConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/packaging/BcastFrameworkConfigVersion.cmake
  DESTINATION ${BCAST_CMAKE_DIR} COMPONENT dev)
# The pkg-config file names the libraries in dependency order, the most dependent first.
set(BCAST_PC_LIBS "")
foreach(lib tal_videotool tal_resource tal_business tal_clientframe tal_webengine tal_wuicontrol tal_errortext
    tal_audiocom tal_zpsclient tal_devnet tal_pcmstorage tal_objectclient tal_secret tal_netcomm tal_mediakit tal_codec tal_base)
  string(APPEND BCAST_PC_LIBS " -l${lib}")
endforeach()
configure_file(packaging/bcast-framework.pc.in ${CMAKE_CURRENT_BINARY_DIR}/packaging/bcast-framework.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/packaging/bcast-framework.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# The client: the host, the module with the host's web adapter beside it, the web pages and the default
# configuration. The panels' translations are compiled into the module's resources.
install(TARGETS bcast-host RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT client)
install(TARGETS BroadCastPlugin bcast_hostweb LIBRARY DESTINATION ${BCAST_PRIVATE_LIBDIR} COMPONENT client)
install(DIRECTORY src/BroadCastPlugin/web/ DESTINATION ${BCAST_DATADIR}/web COMPONENT client)
install(FILES fixtures/client-demo.json DESTINATION ${BCAST_ETCDIR} RENAME client.json COMPONENT client)

# The platform: the server, the device simulator, the demo site, the object store's launcher (its Node.js
# modules are not packaged: see docs/install.md), the service and its configuration.
install(TARGETS bcast-platform bcast-devsim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT platform)
install(FILES fixtures/demo-site.json fixtures/client-demo.json DESTINATION ${BCAST_DATADIR}/fixtures
  COMPONENT platform)
install(PROGRAMS scripts/objectstore/s3rver.js DESTINATION ${BCAST_DATADIR}/objectstore COMPONENT platform)
install(FILES scripts/objectstore/package.json scripts/objectstore/package-lock.json
  DESTINATION ${BCAST_DATADIR}/objectstore COMPONENT platform)
install(FILES fixtures/demo-site.json DESTINATION ${BCAST_ETCDIR} RENAME site.json COMPONENT platform)
configure_file(packaging/platform.conf.in ${CMAKE_CURRENT_BINARY_DIR}/packaging/platform.conf @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/packaging/platform.conf DESTINATION ${BCAST_ETCDIR}
  COMPONENT platform)
configure_file(packaging/bcast-platform.service.in
  ${CMAKE_CURRENT_BINARY_DIR}/packaging/bcast-platform.service @ONLY)
set(BCAST_SYSTEMD_UNITDIR /lib/systemd/system CACHE PATH "Where the platform's systemd unit is installed")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/packaging/bcast-platform.service
  DESTINATION ${BCAST_SYSTEMD_UNITDIR} COMPONENT platform)

# The tools.
install(TARGETS bcast-tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)

# Manual pages, one per program, in the package of the program.
foreach(page bcast-host:client bcast-platform:platform bcast-devsim:platform bcast-tool:tools)
  string(REPLACE ":" ";" page "${page}")
  list(GET page 0 program)
  list(GET page 1 component)
  set(BCAST_MAN_SOURCE ${PROJECT_SOURCE_DIR}/docs/man/${program}.1)
  set(BCAST_MAN_GZ ${CMAKE_CURRENT_BINARY_DIR}/packaging/man/${program}.1.gz)
  file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/packaging/man)
  add_custom_command(OUTPUT ${BCAST_MAN_GZ}
    COMMAND gzip -9n -c ${BCAST_MAN_SOURCE} > ${BCAST_MAN_GZ}
    DEPENDS ${BCAST_MAN_SOURCE} VERBATIM)
  list(APPEND BCAST_MAN_PAGES ${BCAST_MAN_GZ})
  install(FILES ${BCAST_MAN_GZ} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})
endforeach()
add_custom_target(bcast_man_pages ALL DEPENDS ${BCAST_MAN_PAGES})

# Docs, copyright and changelog of each package (Debian wants them in /usr/share/doc/<package>).
set(BCAST_PACKAGE_COMPONENTS framework dev client platform tools)
set(BCAST_PACKAGE_NAME_framework bcast-framework)
set(BCAST_PACKAGE_NAME_dev bcast-framework-dev)
set(BCAST_PACKAGE_NAME_client bcast-client)
set(BCAST_PACKAGE_NAME_platform bcast-platform)
set(BCAST_PACKAGE_NAME_tools bcast-tools)
# The date honours SOURCE_DATE_EPOCH.
string(TIMESTAMP BCAST_CHANGELOG_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(BCAST_MAINTAINER "bcast developers <bcast-maintainers@example.org>" CACHE STRING
  "Maintainer of the Debian packages")
foreach(component IN LISTS BCAST_PACKAGE_COMPONENTS)
  set(package ${BCAST_PACKAGE_NAME_${component}})
  set(docdir ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package})
  configure_file(packaging/changelog.in ${CMAKE_CURRENT_BINARY_DIR}/packaging/${package}/changelog @ONLY)
  execute_process(COMMAND gzip -9n -f ${CMAKE_CURRENT_BINARY_DIR}/packaging/${package}/changelog)
  install(FILES packaging/copyright ${CMAKE_CURRENT_BINARY_DIR}/packaging/${package}/changelog.gz
    DESTINATION ${docdir} COMPONENT ${component})
endforeach()
install(FILES README.md docs/install.md docs/programs.md docs/host.md docs/web.md
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/bcast-client COMPONENT client)
install(FILES README.md docs/install.md docs/programs.md docs/platform.md docs/device-protocol.md
  docs/streaming-client.md DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/bcast-platform COMPONENT platform)
install(FILES docs/programs.md DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/bcast-tools COMPONENT tools)
install(FILES docs/client-framework.md docs/install.md
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/bcast-framework-dev COMPONENT dev)

include(cmake/BcastPackaging.cmake)
