# One Debian package per component, for machines with the release and architecture of the build
# machine.
if(CMAKE_CROSSCOMPILING)
    return() # dpkg would look up dependencies among the build machine's libraries
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME csi-receiver)
set(CPACK_PACKAGE_VENDOR "csi_receiver developers")
set(CPACK_SET_DESTDIR ON) # the configuration goes to /etc, outside the prefix
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL daemon)
if(CSI_RECEIVER_LAB)
    list(APPEND CPACK_COMPONENTS_ALL lab)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "csi_receiver developers <csi-receiver@csi-receiver.invalid>")
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME csi-receiver)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SUGGESTS csi-receiver-lab)
set(CPACK_DEBIAN_DAEMON_DESCRIPTION "Wi-Fi motion sensing daemon for access points
csi_receiver takes commands from a remote REST server and passes them on to the
core services that own the radios, which then capture channel state information
of their client stations, and to motion-detection engines.

csi_doctor checks an installation and reports what is wrong with it.")
set(debian ${PROJECT_SOURCE_DIR}/packaging/debian)
set(CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_EXTRA
    ${debian}/conffiles ${debian}/postinst ${debian}/prerm ${debian}/postrm)

set(CPACK_DEBIAN_LAB_PACKAGE_NAME csi-receiver-lab)
set(CPACK_DEBIAN_LAB_PACKAGE_ENHANCES csi-receiver)
set(CPACK_DEBIAN_LAB_DESCRIPTION "simulated peers for the daemon csi_receiver
csi_lab simulates a whole installation around csi_receiver on one machine: a
REST server, core services with their radios and Bots, and a fusion daemon. It
shows every message, and can make its peers stay silent, answer slowly or lose
datagrams.")

# For the scripts that cpack runs.
set(CPACK_CSI_RECEIVER_PACKAGING ${PROJECT_SOURCE_DIR}/packaging)
set(CPACK_CSI_RECEIVER_VERSION_FILE ${PROJECT_BINARY_DIR}/src/daemon/version.cpp)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/package_version.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package_documents.cmake)
include(CPack)
