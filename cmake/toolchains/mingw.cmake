# 64-bit Windows, by Debian's mingw-w64 with its threads library, which the tests use; its programs run under wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(KOSC_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${KOSC_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KOSC_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${KOSC_TRIPLE}-windres)
set(CMAKE_CROSSCOMPILING_EMULATOR wine)
# Programs bring the C++ runtime along; the libraries need none.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
# Packages come from CMAKE_FIND_ROOT_PATH only: those of the building machine are for another system.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} /usr/${KOSC_TRIPLE}/lib/pkgconfig)
