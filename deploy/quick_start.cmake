# What the CGI programs are compiled and linked with to start quickly: a process is made for each
# request, and most of what a request costs is its start (docs/performance.md).
#
# Functions that a program does not call are left out, and with them what only they need: every page
# of addresses that is not there need not be written when the program finds its place, which it does
# faster from a packed table. first_use.ld puts together what each request runs;
# the map tells a test whether it still does.
add_compile_options(-ffunction-sections -fdata-sections)
add_library(quick_start INTERFACE)
if(RECORDER_STATIC)
    target_sources(quick_start INTERFACE ${CMAKE_CURRENT_LIST_DIR}/lean_sqlite.cpp)
    set(order ${CMAKE_CURRENT_LIST_DIR}/first_use.ld)
    target_link_options(quick_start INTERFACE
        -static-pie -Wl,-z,pack-relative-relocs -Wl,--gc-sections -Wl,-T,${order}
        -Wl,-Map=${CMAKE_BINARY_DIR}/$<TARGET_PROPERTY:NAME>.map)
    set_target_properties(quick_start PROPERTIES INTERFACE_LINK_DEPENDS ${order})
endif()
