# SPDX-License-Identifier: Apache-2.0
# 64-bit Arm by Debian's cross compiler, with the libraries that Tools/arm/test.sh has unpacked; programs run in an emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(triple aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${triple}-gcc)
set(CMAKE_CXX_COMPILER ${triple}-g++)

set(root ${CMAKE_CURRENT_LIST_DIR}/../build/arm/root)
cmake_path(NORMAL_PATH root)
set(CMAKE_LIBRARY_ARCHITECTURE ${triple})
set(CMAKE_FIND_ROOT_PATH ${root})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${root})
set(ENV{PKG_CONFIG_LIBDIR} ${root}/usr/lib/${triple}/pkgconfig:${root}/usr/share/pkgconfig)

# What a library needs in turn is looked for here, when linking and when running. The C and C++ libraries are the compiler's.
set(libraries ${root}/usr/lib/${triple}:${root}/lib/${triple})
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-rpath-link,${libraries})
set(CMAKE_SHARED_LINKER_FLAGS_INIT -Wl,-rpath-link,${libraries})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L /usr/${triple} -E LD_LIBRARY_PATH=${libraries})
