# Registers tests of the CGI program's rooms, which stand on the fake platform.

# With sanitizers a leak fails a test, but for the one leak that is meant to be.
set(leak_options LSAN_OPTIONS=fast_unwind_on_malloc=0:print_suppressions=0)
string(APPEND leak_options :suppressions=${CMAKE_CURRENT_SOURCE_DIR}/support/meant_leaks.txt)

function(add_unit_program name)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE
        front_end recording_backup_function platform_fake cgi_reply GTest::gtest_main)
endfunction()

# add_unit_test(NAME source...): links the program's own code with the fake in the platform's place.
function(add_unit_test name)
    add_unit_program(${name} ${ARGN})
    gtest_discover_tests(${name} TEST_PREFIX ${name}. DISCOVERY_TIMEOUT 60
        PROPERTIES LABELS unit ENVIRONMENT ${leak_options})
endfunction()

# add_sandboxed_unit_test(NAME source...): the same for tests that write to the fixed paths.
function(add_sandboxed_unit_test name)
    add_unit_program(${name} ${ARGN})
    add_sandboxed_test(${name} COMMAND env ${leak_options} $<TARGET_FILE:${name}> LABELS unit)
endfunction()
