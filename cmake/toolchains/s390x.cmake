# s390x, which is big-endian; its programs run under qemu-user.
set(KOSC_TRIPLE s390x-linux-gnu)
set(KOSC_QEMU qemu-s390x-static)
set(CMAKE_SYSTEM_PROCESSOR s390x)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
