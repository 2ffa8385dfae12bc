# Runs after cpack has installed each component into a folder, before it packs them: adds the files
# that only packages have.
function(compress file)
    execute_process(COMMAND gzip -9nf ${file} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(add_documents package folder)
    set(documents ${folder}/usr/share/doc/${package})
    file(COPY ${CPACK_CSI_RECEIVER_PACKAGING}/debian/copyright DESTINATION ${documents}
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    set(version ${CPACK_PACKAGE_VERSION})
    set(version_text ${CPACK_CSI_RECEIVER_VERSION_TEXT})
    string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
    configure_file(${CPACK_CSI_RECEIVER_PACKAGING}/debian/changelog.in ${documents}/changelog @ONLY)
    compress(${documents}/changelog)
    file(GLOB_RECURSE pages ${folder}/usr/share/man/*)
    foreach(page IN LISTS pages)
        compress(${page})
    endforeach()
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} name)
    add_documents(${CPACK_DEBIAN_${name}_PACKAGE_NAME} ${CPACK_TEMPORARY_DIRECTORY}/${component})
endforeach()
