# What the cross toolchains share: Debian's cross compiler for KOSC_TRIPLE, with its programs run by KOSC_QEMU.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${KOSC_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${KOSC_TRIPLE}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR ${KOSC_QEMU} -L /usr/${KOSC_TRIPLE})
# What GCC says about its own ABI of long ago.
add_compile_options(-Wno-psabi)
# Packages come from CMAKE_FIND_ROOT_PATH only: those of the building machine are for another processor.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${KOSC_TRIPLE}/pkgconfig)
