# Runs at install time: installs the configuration, and the unit with the paths of this
# installation.

# With the prefix /usr, etc is the system's /etc.
function(resolve_path result path)
    if(IS_ABSOLUTE ${path})
        set(${result} ${path} PARENT_SCOPE)
    elseif(CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND path MATCHES "^etc(/|$)")
        set(${result} /${path} PARENT_SCOPE)
    else()
        set(${result} ${CMAKE_INSTALL_PREFIX}/${path} PARENT_SCOPE)
    endif()
endfunction()

resolve_path(sbindir ${CMAKE_INSTALL_SBINDIR})
resolve_path(sysconfdir ${CMAKE_INSTALL_SYSCONFDIR})

# Never overwrites an operator's configuration with the sample.
if(EXISTS $ENV{DESTDIR}${sysconfdir}/csi_receiver.conf)
    message(STATUS "Kept: $ENV{DESTDIR}${sysconfdir}/csi_receiver.conf")
else()
    file(INSTALL ${PROJECT_SOURCE_DIR}/packaging/csi_receiver.conf DESTINATION ${sysconfdir})
endif()

if(CSI_RECEIVER_UNIT_DIR)
    resolve_path(unit_dir ${CSI_RECEIVER_UNIT_DIR})
    set(unit ${PROJECT_BINARY_DIR}/csi_receiver.service)
    configure_file(${PROJECT_SOURCE_DIR}/packaging/systemd/csi_receiver.service.in ${unit} @ONLY)
    file(INSTALL ${unit} DESTINATION ${unit_dir})
endif()
