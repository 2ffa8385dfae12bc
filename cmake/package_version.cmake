# The version of the packages is the one that the daemon in them tells: v1.0-13-g0123456789ab as
# 1.0+13.g0123456789ab, which dpkg orders like the commits.
file(STRINGS ${CPACK_CSI_RECEIVER_VERSION_FILE} line REGEX "return \"")
if(NOT line MATCHES "\"(v?([^ \"]+)-([0-9]+)-(g[0-9a-f]+)) ")
    message(FATAL_ERROR "No version in ${CPACK_CSI_RECEIVER_VERSION_FILE}: ${line}")
endif()
set(CPACK_CSI_RECEIVER_VERSION_TEXT ${CMAKE_MATCH_1})
set(behind "+${CMAKE_MATCH_3}.${CMAKE_MATCH_4}")
string(REPLACE "-" "~" release "${CMAKE_MATCH_2}") # 1.1-rc1 is older than 1.1
set(CPACK_PACKAGE_VERSION "${release}${behind}")
if(NOT CPACK_PACKAGE_VERSION MATCHES "^[0-9][0-9A-Za-z.+~]*$")
    message(FATAL_ERROR "No version of a Debian package: ${CPACK_PACKAGE_VERSION}")
endif()
set(CPACK_DEBIAN_PACKAGE_VERSION ${CPACK_PACKAGE_VERSION})
