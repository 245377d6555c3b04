# SPDX-License-Identifier: Apache-2.0
# What the compiler and the linker do against errors that become holes. Not beside sanitizers, which have checks of their
# own; those of the C library's functions also need an optimiser.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported()

if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  foreach(flag IN ITEMS -fstack-protector-strong -fstack-clash-protection -fcf-protection)
    string(MAKE_C_IDENTIFIER "accepts${flag}" accepts)
    check_cxx_compiler_flag(${flag} ${accepts})
    if(${accepts})
      target_compile_options(tovix_flags INTERFACE ${flag})
    endif()
  endforeach()
  set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  target_compile_options(tovix_flags INTERFACE $<${optimised}:-U_FORTIFY_SOURCE> $<${optimised}:-D_FORTIFY_SOURCE=3>)
  target_link_options(tovix_flags INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()
