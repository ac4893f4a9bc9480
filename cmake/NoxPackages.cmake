# The Debian packages, one per component: cpack in a build of the preset "package".
#
#   libnox1      the libraries           libnox-dev   what a program is built with
#   noxd         the agent               nox          the command
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME nox)
set(CPACK_PACKAGE_VENDOR "libnox")
set(CPACK_PACKAGE_CONTACT "The libnox developers <libnox@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL libnox1 libnox-dev noxd nox)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION database)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Which packages the programs need is read off them; our own libraries come from this build.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(same_version "(= ${PROJECT_VERSION}-1)")

set(CPACK_DEBIAN_LIBNOX1_PACKAGE_NAME libnox1)
set(CPACK_DEBIAN_LIBNOX1_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBNOX1_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_COMPONENT_LIBNOX1_DESCRIPTION "Protocol and client library for MultiValue databases
 libnox carries the conversation between a MultiValue database agent and its
 clients; libnoxclient is the client's side of it.")

set(CPACK_DEBIAN_LIBNOX-DEV_PACKAGE_NAME libnox-dev)
set(CPACK_DEBIAN_LIBNOX-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_LIBNOX-DEV_PACKAGE_DEPENDS "libnox1 ${same_version}")
set(CPACK_DEBIAN_LIBNOX-DEV_PACKAGE_SUGGESTS "libace-dev, libace-ssl-dev")
set(CPACK_DEBIAN_LIBNOX-DEV_PACKAGE_SHLIBDEPS OFF)
set(CPACK_COMPONENT_LIBNOX-DEV_DESCRIPTION "Development files for libnox and its client library
 Headers, and what CMake and pkg-config need to find the libraries.")

set(CPACK_DEBIAN_NOXD_PACKAGE_NAME noxd)
set(CPACK_DEBIAN_NOXD_PACKAGE_DEPENDS "libnox1 ${same_version}")
set(CPACK_DEBIAN_NOXD_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/agent/debian/postinst)
set(CPACK_COMPONENT_NOXD_DESCRIPTION "Agent for MultiValue data, with an embedded store
 noxd keeps files of MultiValue records and SQL tables, serves them over TCP
 and TLS, and survives a crash without losing what it has acknowledged.")

set(CPACK_DEBIAN_NOX_PACKAGE_NAME nox)
set(CPACK_DEBIAN_NOX_PACKAGE_DEPENDS "libnox1 ${same_version}")
set(CPACK_DEBIAN_NOX_PACKAGE_SUGGESTS noxd)
set(CPACK_COMPONENT_NOX_DESCRIPTION "Command-line client for noxd
 Reads and writes records, runs commands, SQL and subroutines, loads and
 exports files, and shows what goes over the wire.")

include(CPack)
