# 32-bit ARM with hardware floating point; its programs run under qemu-user.
set(KOSC_TRIPLE arm-linux-gnueabihf)
set(KOSC_QEMU qemu-arm-static)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
