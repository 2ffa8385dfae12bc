# Fills in the version text: the release from VERSION, the number of commits since that file last
# changed, and the commit. Without git, as in a tarball, the last two are zero.
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
configure_file(${template} ${output} @ONLY)
