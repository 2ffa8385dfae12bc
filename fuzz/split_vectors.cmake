# Splits the conversations in the files `vectors` into seeds in the folder `output`. The target
# "message" gets every step and every whole conversation, with one line per message or answer, and
# "exchange" the answers of a whole conversation. The other targets get every single message, answer
# and routing.
cmake_minimum_required(VERSION 3.21)
file(REMOVE_RECURSE ${output})

function(get_line result) # json path...: the JSON at the path, in one line
    string(JSON text ERROR_VARIABLE none GET ${ARGN})
    string(REPLACE "\n" "" text "${text}")
    set(${result} "${text}" PARENT_SCOPE)
endfunction()

function(get_last result) # json path...: the last index of the array at the path, -1 if there is none
    string(JSON length ERROR_VARIABLE none LENGTH ${ARGN})
    if(none)
        set(length 0)
    endif()
    math(EXPR last "${length} - 1")
    set(${result} ${last} PARENT_SCOPE)
endfunction()

foreach(vector IN LISTS vectors)
    get_filename_component(name ${vector} NAME_WE)
    file(READ ${vector} json)
    get_line(routing "${json}" routing)
    file(WRITE ${output}/routing/${name} "${routing}")
    set(conversation "")
    set(replies "")
    get_last(last_step "${json}" steps)
    foreach(step RANGE ${last_step})
        get_line(lines "${json}" steps ${step} receive)
        file(WRITE ${output}/identifiers/${name}-${step} "${lines}")
        get_last(last_ask "${json}" steps ${step} asks)
        set(ask 0)
        while(ask LESS_EQUAL last_ask)
            get_line(reply "${json}" steps ${step} asks ${ask} answer)
            file(WRITE ${output}/core_replies/${name}-${step}-${ask} "${reply}")
            string(APPEND lines "\n${reply}")
            string(APPEND replies "${reply}\n")
            math(EXPR ask "${ask} + 1")
        endwhile()
        file(WRITE ${output}/message/${name}-${step} "${lines}\n")
        string(APPEND conversation "${lines}\n")
    endforeach()
    file(WRITE ${output}/message/${name} "${conversation}")
    file(WRITE ${output}/exchange/${name} "${replies}")
endforeach()
