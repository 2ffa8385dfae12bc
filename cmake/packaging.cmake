# What cpack makes of the components: a Debian package each, for machines like the one that builds.
if(CMAKE_CROSSCOMPILING)
    return() # dpkg would take our own libraries for the target's
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME csi-receiver)
set(CPACK_PACKAGE_VENDOR "csi_receiver developers")
set(CPACK_SET_DESTDIR ON) # the configuration goes to /etc, outside of the prefix
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
set(CPACK_DEBIAN_DAEMON_DESCRIPTION "daemon of an access point for Wi-Fi motion sensing
csi_receiver takes the commands of a remote REST server and passes them on to
the core services that own the radios, which then capture channel state
information of their client stations, and to motion-detection engines.

csi_doctor tells what is wrong with an installation.")
set(debian ${PROJECT_SOURCE_DIR}/packaging/debian)
set(CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_EXTRA
    ${debian}/conffiles ${debian}/postinst ${debian}/prerm ${debian}/postrm)

set(CPACK_DEBIAN_LAB_PACKAGE_NAME csi-receiver-lab)
set(CPACK_DEBIAN_LAB_PACKAGE_ENHANCES csi-receiver)
set(CPACK_DEBIAN_LAB_DESCRIPTION "peers of the daemon csi_receiver, played on one machine
csi_lab plays a whole installation for csi_receiver: a REST server, core
services with their radios and Bots, and a fusion daemon. It shows every
message, and the peers can be told to stay silent, to lose datagrams or to be
slow.")

# For the scripts, which run when the binaries are there.
set(CPACK_CSI_RECEIVER_PACKAGING ${PROJECT_SOURCE_DIR}/packaging)
set(CPACK_CSI_RECEIVER_VERSION_FILE ${PROJECT_BINARY_DIR}/src/daemon/version.cpp)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/package_version.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package_documents.cmake)
include(CPack)
