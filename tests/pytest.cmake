# Registers whole-program tests, in a sandbox where they need the recorder's fixed paths and ports.
#
# All of these take [LABELS label...] [TIMEOUT seconds]. Without LABELS a test is labelled after its
# folder; ./test leaves the labels "end_to_end" and "source" out of the run with sanitizers. TIMEOUT
# is for what takes an hour when all is well. The environment names the build folder
# (RECORDER_BUILD) and the source tree (RECORDER_SOURCE).

function(set_surroundings name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "LABELS")
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT ${HANGING})
    endif()
    if(NOT arg_LABELS)
        room_of_this_folder(room arg_LABELS)
    endif()
    set(environment
        RECORDER_BUILD=${CMAKE_BINARY_DIR}
        RECORDER_SOURCE=${PROJECT_SOURCE_DIR}
        PYTHONDONTWRITEBYTECODE=1)
    set_tests_properties(${name} PROPERTIES
        ENVIRONMENT "${environment}" LABELS "${arg_LABELS}" TIMEOUT ${arg_TIMEOUT})
endfunction()

# add_sandboxed_test(NAME COMMAND program args...)
#
# Runs the command under scripts/sandbox --net: the fixed paths are empty and private, 127.0.0.1 is
# the test's own, and whatever the test starts dies with it.
function(add_sandboxed_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "COMMAND;LABELS;TIMEOUT")
    add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/scripts/sandbox --net
        --bind ${CMAKE_BINARY_DIR} -- ${arg_COMMAND})
    set_surroundings(${name} LABELS ${arg_LABELS} TIMEOUT ${arg_TIMEOUT})
endfunction()

set(pytest ${SYSTEM_PYTHON} -m pytest -q -rfEs -p no:cacheprovider
    --rootdir ${PROJECT_SOURCE_DIR}/tests)

# add_sandboxed_pytest(NAME file.py): the same for one pytest file of the current folder.
function(add_sandboxed_pytest name file)
    add_sandboxed_test(${name} COMMAND ${pytest} ${CMAKE_CURRENT_SOURCE_DIR}/${file} ${ARGN})
    set_tests_properties(${name} PROPERTIES WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
endfunction()

# add_pytest(NAME file.py): one pytest file of the current folder, without a sandbox.
function(add_pytest name file)
    add_test(NAME ${name} WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}
        COMMAND ${pytest} --basetemp ${CMAKE_CURRENT_BINARY_DIR}/${name}
            ${CMAKE_CURRENT_SOURCE_DIR}/${file})
    set_surroundings(${name} ${ARGN})
endfunction()
