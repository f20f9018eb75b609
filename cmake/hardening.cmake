# Hardening of library and tools in every build type but Debug: checks of stack and buffers at run
# time, variables that are never left unset, indirect jumps only to marked places (x86). What the
# loader fills in is read only afterwards in every build. tests/hardening_test.sh reads it off the
# built files.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

set(OVRMAIL_HARDENING)
set(OVRMAIL_HARDENING_LINK
  -Wl,--as-needed -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,-z,text)
if(CMAKE_BUILD_TYPE STREQUAL "Debug")
  return()
endif()

# ovrmail_harden(FLAGS...): the first spelling that this compiler knows, if any does.
function(ovrmail_harden)
  foreach(flag ${ARGN})
    separate_arguments(words UNIX_COMMAND "${flag}")
    string(MAKE_C_IDENTIFIER "OVRMAIL_HAS${flag}" known)
    check_cxx_compiler_flag("${flag}" ${known})
    if(${known})
      set(OVRMAIL_HARDENING ${OVRMAIL_HARDENING} ${words} PARENT_SCOPE)
      return()
    endif()
  endforeach()
endfunction()
ovrmail_harden(-fstack-protector-strong)
ovrmail_harden(-fstack-clash-protection)
ovrmail_harden(-fcf-protection=full)
# clang before version 16 wants a second flag before it takes the first.
set(zero -ftrivial-auto-var-init=zero)
ovrmail_harden(${zero}
  "${zero} -enable-trivial-auto-var-init-zero-knowing-it-will-be-removed-from-clang")

# The C library warns where its checks are asked for without optimisation. A distribution that asks
# for a lower level has done so earlier on the command line.
set(CMAKE_TRY_COMPILE_CONFIGURATION ${CMAKE_BUILD_TYPE})
check_cxx_source_compiles("
#ifndef __OPTIMIZE__
#error not optimised
#endif
int main() {}" OVRMAIL_OPTIMIZES)
unset(CMAKE_TRY_COMPILE_CONFIGURATION)
if(OVRMAIL_OPTIMIZES)
  list(APPEND OVRMAIL_HARDENING -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
endif()
