# 64-bit ARM; its programs run under qemu-user.
set(KOSC_TRIPLE aarch64-linux-gnu)
set(KOSC_QEMU qemu-aarch64-static)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
