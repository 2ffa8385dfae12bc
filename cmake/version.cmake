# Fills in the version text: the release from VERSION, the number of commits since that file last
# changed, and the commit. Without git, as in a tarball, the last two are zero. Without a template,
# prints the text.
file(STRINGS ${source}/VERSION release LIMIT_COUNT 1)
set(count 0)
set(commit 000000000000)

function(ask_git result)
    execute_process(COMMAND git ${ARGN}
        WORKING_DIRECTORY ${source}
        OUTPUT_VARIABLE answer RESULT_VARIABLE status ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(status EQUAL 0 AND NOT answer STREQUAL "")
        set(${result} ${answer} PARENT_SCOPE)
    endif()
endfunction()

if(EXISTS ${source}/.git)
    ask_git(commit rev-parse --short=12 HEAD)
    ask_git(released rev-list -1 HEAD -- VERSION)
    if(released)
        ask_git(count rev-list --count ${released}..HEAD)
    endif()
endif()

set(version "${release}-${count}-g${commit}")
if(NOT template)
    execute_process(COMMAND ${CMAKE_COMMAND} -E echo ${version})
    return()
endif()

# The time of the build, unless it is given: then the same sources give the same program.
set(built "__DATE__ \" \" __TIME__")
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    string(TIMESTAMP built "\"%b %d %Y %H:%M:%S\"" UTC)
    string(REGEX REPLACE "^(....) 0" "\\1  " built "${built}") # as __DATE__ has the day
endif()
configure_file(${template} ${output} @ONLY)
