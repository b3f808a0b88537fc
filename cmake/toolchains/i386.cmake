# 32-bit x86: not for devices, but the quickest machine on which a pointer has four bytes and a time
# 32 bits. The processor runs the programs itself, with the loader of the folder.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(VARRO2_TRIPLE i386-linux-gnu)
set(VARRO2_TRIPLE_OF_TOOLS i686-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/sysroot.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR ${VARRO2_SYSROOT}/lib/ld-linux.so.2 --library-path
    ${VARRO2_SYSROOT}/lib/i386-linux-gnu:${VARRO2_SYSROOT}/usr/lib/i386-linux-gnu)
