# SPDX-License-Identifier: Apache-2.0
# A toolchain of Debian's: the cross compiler COMPILER_PREFIX, and the libraries that the packages
# of the foreign architecture put into /usr/lib/FOREIGN_LIBRARIES.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${COMPILER_PREFIX}-gcc)
set(CMAKE_CXX_COMPILER ${COMPILER_PREFIX}-g++)
set(CMAKE_ASM_COMPILER ${COMPILER_PREFIX}-gcc)
set(CMAKE_LIBRARY_ARCHITECTURE ${FOREIGN_LIBRARIES})
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${FOREIGN_LIBRARIES}/pkgconfig:/usr/share/pkgconfig)

# The library alone: its development package draws in the C library's, and that only installs where
# this machine's own is of exactly the same version. The header is the same for all.
set(ZLIB_LIBRARY /lib/${FOREIGN_LIBRARIES}/libz.so.1 CACHE FILEPATH "zlib of the foreign architecture")
