# What `cmake --install` installs, in two components: the daemon with everything its operators need,
# and the lab. Developers' programs are not installed.
include(GNUInstallDirs)

set(CSI_RECEIVER_UNIT_DIR lib/systemd/system CACHE STRING
    "Directory of the systemd unit; if empty, the unit is not installed")
set(csi_receiver_doc_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/csi-receiver)
set(csi_receiver_completion_dir ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions)
set(csi_receiver_man ${PROJECT_SOURCE_DIR}/packaging/man)

install(TARGETS csi_receiver csi_doctor
    RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
install(FILES ${csi_receiver_man}/csi_receiver.8 ${csi_receiver_man}/csi_doctor.8
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT daemon)
install(FILES ${csi_receiver_man}/csi_receiver.conf.5
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT daemon)
install(FILES packaging/completion/csi_receiver packaging/completion/csi_doctor
    DESTINATION ${csi_receiver_completion_dir} COMPONENT daemon)

# In the same folders as here, so that the links between them work.
install(FILES README.md SECURITY.md CONTRIBUTING.md CHANGELOG.md
    DESTINATION ${csi_receiver_doc_dir} COMPONENT daemon)
install(DIRECTORY docs DESTINATION ${csi_receiver_doc_dir} COMPONENT daemon
    FILES_MATCHING PATTERN "*.md" PATTERN "*.png" PATTERN "*.svg" PATTERN figures EXCLUDE)
install(DIRECTORY examples DESTINATION ${csi_receiver_doc_dir} COMPONENT daemon
    FILES_MATCHING PATTERN "*.py")
install(DIRECTORY protocol DESTINATION ${csi_receiver_doc_dir} COMPONENT daemon)
install(FILES packaging/README.md packaging/csi_receiver.conf
    DESTINATION ${csi_receiver_doc_dir}/packaging COMPONENT daemon)
install(FILES packaging/proxy/nginx.conf packaging/proxy/haproxy.cfg
    DESTINATION ${csi_receiver_doc_dir}/packaging/proxy COMPONENT daemon)

# The unit contains paths, which `cmake --install --prefix` may still change.
foreach(name IN ITEMS CMAKE_INSTALL_SBINDIR CMAKE_INSTALL_SYSCONFDIR
        CSI_RECEIVER_UNIT_DIR PROJECT_SOURCE_DIR PROJECT_BINARY_DIR)
    install(CODE "set(${name} \"${${name}}\")" COMPONENT daemon)
endforeach()
install(SCRIPT cmake/install_configured.cmake COMPONENT daemon)

if(CSI_RECEIVER_LAB)
    install(TARGETS csi_lab RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT lab)
    install(FILES ${csi_receiver_man}/csi_lab.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT lab)
    install(FILES packaging/completion/csi_lab
        DESTINATION ${csi_receiver_completion_dir} COMPONENT lab)
endif()
