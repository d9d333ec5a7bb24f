# Debian's musl with g++ and the headers of its C++ library, which is all that libkosc's own sources need of it. There is
# no C++ runtime for musl in Debian: programs of this toolchain are C.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER musl-gcc)
set(CMAKE_CXX_COMPILER g++)
execute_process(COMMAND g++ -print-file-name=include OUTPUT_VARIABLE KOSC_GCC_INCLUDE OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND g++ -print-multiarch OUTPUT_VARIABLE KOSC_MULTIARCH OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND g++ -dumpversion OUTPUT_VARIABLE KOSC_GCC_VERSION OUTPUT_STRIP_TRAILING_WHITESPACE)
string(REPLACE "-gnu" "-musl" KOSC_MUSL ${KOSC_MULTIARCH})
# The headers were configured for glibc and ask for its version.
string(CONCAT CMAKE_CXX_FLAGS_INIT "-nostdinc -isystem /usr/include/c++/${KOSC_GCC_VERSION}"
    " -isystem /usr/include/${KOSC_MULTIARCH}/c++/${KOSC_GCC_VERSION} -isystem /usr/include/${KOSC_MUSL}"
    " -isystem ${KOSC_GCC_INCLUDE} '-D__GLIBC_PREREQ(major,minor)=0'")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
