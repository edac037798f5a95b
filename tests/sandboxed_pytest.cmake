# Registers tests that need the recorder's fixed paths and ports: each runs in a sandbox of its own.

# add_sandboxed_test(NAME COMMAND program args... [LABELS label...] [TIMEOUT seconds])
#
# Runs the command under scripts/sandbox --net: the fixed paths are empty and private, 127.0.0.1 is
# the test's own, and whatever the test starts dies with it. The environment names the build folder
# (RECORDER_BUILD) and the source tree (RECORDER_SOURCE). Without LABELS the test carries the name
# of its folder; ./test leaves the labels "end_to_end" and "source" out of the run with sanitizers.
function(add_sandboxed_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "COMMAND;LABELS")
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()
    if(NOT arg_LABELS)
        get_filename_component(arg_LABELS ${CMAKE_CURRENT_SOURCE_DIR} NAME)
    endif()
    add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/scripts/sandbox --net
        --bind ${CMAKE_BINARY_DIR} -- ${arg_COMMAND})
    set(environment
        RECORDER_BUILD=${CMAKE_BINARY_DIR}
        RECORDER_SOURCE=${PROJECT_SOURCE_DIR}
        PYTHONDONTWRITEBYTECODE=1)
    set_tests_properties(${name} PROPERTIES
        ENVIRONMENT "${environment}" LABELS "${arg_LABELS}" TIMEOUT ${arg_TIMEOUT})
endfunction()

# add_sandboxed_pytest(NAME file.py [LABELS label...] [TIMEOUT seconds])
#
# The same for one pytest file of the current folder, which is the working folder too.
function(add_sandboxed_pytest name file)
    add_sandboxed_test(${name}
        COMMAND ${SYSTEM_PYTHON} -m pytest -q -p no:cacheprovider
            --rootdir ${PROJECT_SOURCE_DIR}/tests ${CMAKE_CURRENT_SOURCE_DIR}/${file}
        ${ARGN})
    set_tests_properties(${name} PROPERTIES WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
endfunction()
