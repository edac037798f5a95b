# What every program is compiled and linked with against the faults that nobody has found yet.
#
# A write past a buffer on the stack, or through a C library's call that knows the buffer's size,
# ends the process; addresses cannot be guessed, nor can the tables of addresses be written over;
# no jump lands in the middle of a function. tests/deploy/test_hardening.py finds them in the
# programs; docs/security.md says what they cost.
include(CheckCXXCompilerFlag)

# Code for programs that lie anywhere in memory, as Debian's compilers link them by themselves; the
# static one needs a word more (-static-pie, deploy/quick_start.cmake). -fPIC, for libraries that
# others are linked with later, would keep functions from being inlined.
add_compile_options(-fPIE -fstack-protector-strong -fstack-clash-protection)
add_link_options(-Wl,-z,relro -Wl,-z,now)
check_cxx_compiler_flag(-fcf-protection HAS_CF_PROTECTION) # x86 alone
if(HAS_CF_PROTECTION)
    add_compile_options(-fcf-protection)
endif()
# Needs an optimizer that knows the buffers' sizes; the sanitizers know them without.
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
endif()
