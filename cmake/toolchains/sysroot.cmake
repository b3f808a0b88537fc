# What the toolchain files share: VARRO2_TRIPLE names the machine, VARRO2_SYSROOT (or the variable
# of that name in the environment) the folder with its headers and libraries. scripts/cross makes
# such a folder.
if(NOT VARRO2_SYSROOT AND DEFINED ENV{VARRO2_SYSROOT})
  set(VARRO2_SYSROOT $ENV{VARRO2_SYSROOT})
endif()
if(NOT VARRO2_SYSROOT)
  message(FATAL_ERROR "Set VARRO2_SYSROOT to the folder with the headers and libraries to build for.")
endif()
# Try-compiles read this file as well and see only what is named here.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VARRO2_SYSROOT)

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${VARRO2_TRIPLE_OF_TOOLS}-gcc)
set(CMAKE_CXX_COMPILER ${VARRO2_TRIPLE_OF_TOOLS}-g++)
set(CMAKE_SYSROOT ${VARRO2_SYSROOT})
set(CMAKE_LIBRARY_ARCHITECTURE ${VARRO2_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_DIR} "")
set(ENV{PKG_CONFIG_LIBDIR} ${VARRO2_SYSROOT}/usr/lib/${VARRO2_TRIPLE}/pkgconfig:${VARRO2_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${VARRO2_SYSROOT})
