# 64-bit Arm, which is what devices have. The programs run in qemu-user.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(VARRO2_TRIPLE aarch64-linux-gnu)
set(VARRO2_TRIPLE_OF_TOOLS aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/sysroot.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L ${VARRO2_SYSROOT})
