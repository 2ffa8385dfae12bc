# Takes the packages' version from the daemon: v1.0-13-g0123456789ab becomes 1.0+13.g0123456789ab,
# which dpkg sorts in the order of the commits.
file(STRINGS ${CPACK_CSI_RECEIVER_VERSION_FILE} line REGEX "return \"")
if(NOT line MATCHES "\"(v?([^ \"]+)-([0-9]+)-(g[0-9a-f]+)) ")
    message(FATAL_ERROR "No version found in ${CPACK_CSI_RECEIVER_VERSION_FILE}: ${line}")
endif()
set(CPACK_CSI_RECEIVER_VERSION_TEXT ${CMAKE_MATCH_1})
set(behind "+${CMAKE_MATCH_3}.${CMAKE_MATCH_4}")
string(REPLACE "-" "~" release "${CMAKE_MATCH_2}") # 1.1-rc1 is older than 1.1
set(CPACK_PACKAGE_VERSION "${release}${behind}")
if(NOT CPACK_PACKAGE_VERSION MATCHES "^[0-9][0-9A-Za-z.+~]*$")
    message(FATAL_ERROR "Not a valid Debian package version: ${CPACK_PACKAGE_VERSION}")
endif()
set(CPACK_DEBIAN_PACKAGE_VERSION ${CPACK_PACKAGE_VERSION})
