# The Debian packages, one per install component, built with `cpack -G DEB` in a build tree configured with
# -DCMAKE_INSTALL_PREFIX=/usr (scripts/package.sh). Library dependencies are computed by dpkg-shlibdeps.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME bcast)
set(CPACK_PACKAGE_VENDOR "bcast developers")
set(CPACK_PACKAGE_CONTACT "${BCAST_MAINTAINER}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "audio broadcast client module and reference platform")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL framework dev client platform tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${BCAST_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The framework libraries are private (not in ldconfig's path): dpkg-shlibdeps finds them in the build tree,
# and the packages that need them depend on bcast-framework of the same version.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

foreach(component IN LISTS BCAST_PACKAGE_COMPONENTS)
  string(TOUPPER ${component} COMPONENT)
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${BCAST_PACKAGE_NAME_${component}})
endforeach()

set(CPACK_COMPONENT_FRAMEWORK_DESCRIPTION "bcast framework libraries
 The open framework libraries of the bcast broadcast module: base, network
 communication, business, resources, client frame, error texts, UI control,
 web engine and media (codecs, audio, device network, streaming client,
 object store client), in the private directory lib/<arch>/bcast.")
set(CPACK_COMPONENT_DEV_DESCRIPTION "bcast framework libraries - development files
 Headers, the CMake package BcastFramework (imported targets Bcast::tal_*)
 and the pkg-config file bcast-framework.pc, for building another plugin or
 host against the bcast framework libraries.")
set(CPACK_COMPONENT_DEV_DEPENDS framework)
set(CPACK_COMPONENT_CLIENT_DESCRIPTION "bcast client: host program and broadcast module
 bcast-host loads the broadcast module (libBroadCastPlugin.so) and drives it
 from the command line, in a window or through its web pages; bcast-host
 doctor checks a client's configuration and machine. The default client
 configuration is /etc/bcast/client.json.")
set(CPACK_COMPONENT_CLIENT_DEPENDS framework)
set(CPACK_COMPONENT_PLATFORM_DESCRIPTION "bcast reference platform server
 bcast-platform serves the REST interface and the push link of a broadcast
 site with simulated speakers and devices; bcast-devsim simulates one
 device. Runs as the service bcast-platform (user bcast, configuration in
 /etc/bcast, data in /var/lib/bcast, output to the journal).")
set(CPACK_COMPONENT_PLATFORM_DEPENDS framework)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "bcast tools for integrators
 bcast-tool inspects and encodes audio files, sends and receives RTP audio
 and compares recordings.")
set(CPACK_COMPONENT_TOOLS_DEPENDS framework)

# Run-time needs that are no linked library: the streaming client and the platform's streaming server load
# GStreamer plugins; the platform's service user is made with adduser. Node.js runs the optional object
# store of the platform.
set(CPACK_DEBIAN_FRAMEWORK_PACKAGE_DEPENDS
  "gstreamer1.0-plugins-base, gstreamer1.0-plugins-good")
set(CPACK_DEBIAN_PLATFORM_PACKAGE_DEPENDS
  "adduser, gstreamer1.0-plugins-base, gstreamer1.0-plugins-good, gstreamer1.0-plugins-bad, gstreamer1.0-rtsp")
set(CPACK_DEBIAN_PLATFORM_PACKAGE_SUGGESTS "nodejs, npm")
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "qtbase5-dev")
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_FRAMEWORK_PACKAGE_SECTION libs)

# Conffiles and maintainer scripts.
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/packaging/client ${CMAKE_BINARY_DIR}/packaging/platform)
file(WRITE ${CMAKE_BINARY_DIR}/packaging/client/conffiles "${BCAST_ETCDIR}/client.json\n")
file(WRITE ${CMAKE_BINARY_DIR}/packaging/platform/conffiles
  "${BCAST_ETCDIR}/platform.conf\n${BCAST_ETCDIR}/site.json\n")
foreach(script postinst prerm postrm)
  configure_file(packaging/platform.${script}.in ${CMAKE_BINARY_DIR}/packaging/platform/${script} @ONLY)
  file(CHMOD ${CMAKE_BINARY_DIR}/packaging/platform/${script} FILE_PERMISSIONS OWNER_READ OWNER_WRITE
    OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endforeach()
set(CPACK_DEBIAN_CLIENT_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/packaging/client/conffiles)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/packaging/platform/conffiles
  ${CMAKE_BINARY_DIR}/packaging/platform/postinst ${CMAKE_BINARY_DIR}/packaging/platform/prerm
  ${CMAKE_BINARY_DIR}/packaging/platform/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

include(CPack)
