# Registers GoogleTest programs, each test named and labelled after the room that its folder is for.

# With sanitizers a leak fails a test, but for the one leak that is meant to be.
set(leak_options LSAN_OPTIONS=fast_unwind_on_malloc=0:print_suppressions=0)
string(APPEND leak_options :suppressions=${CMAKE_CURRENT_SOURCE_DIR}/support/meant_leaks.txt)

# room_of_this_folder(NAME LABEL): tests/services/event_log has "services.event_log" and "services".
function(room_of_this_folder name label)
    file(RELATIVE_PATH room ${PROJECT_SOURCE_DIR}/tests ${CMAKE_CURRENT_SOURCE_DIR})
    string(REGEX MATCH "^[^/]+" top ${room})
    string(REPLACE / . room ${room})
    set(${name} ${room} PARENT_SCOPE)
    set(${label} ${top} PARENT_SCOPE)
endfunction()

# register_tests(PROGRAM [PART]): as ROOM.SUITE.TEST, or ROOM.PART.SUITE.TEST.
function(register_tests program)
    room_of_this_folder(room label)
    list(APPEND room ${ARGN} "")
    list(JOIN room . prefix)
    gtest_discover_tests(${program} TEST_PREFIX ${prefix} DISCOVERY_TIMEOUT ${HANGING}
        PROPERTIES LABELS ${label} TIMEOUT ${HANGING} ENVIRONMENT ${leak_options})
endfunction()

function(add_unit_program program)
    add_executable(${program} ${ARGN})
    target_link_libraries(${program} PRIVATE
        front_end recording_backup_function platform_fake cgi_reply GTest::gtest_main)
endfunction()

# add_unit_test(PROGRAM source...): the CGI program with the fake in the platform's place.
function(add_unit_test program)
    add_unit_program(${program} ${ARGN})
    register_tests(${program})
endfunction()

# add_sandboxed_unit_test(PROGRAM source...): the same for tests that write to the fixed paths; one
# test that is named after the program.
function(add_sandboxed_unit_test program)
    add_unit_program(${program} ${ARGN})
    room_of_this_folder(room label)
    add_sandboxed_test(${room}.${program} COMMAND env ${leak_options} $<TARGET_FILE:${program}>)
endfunction()
