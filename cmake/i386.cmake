# SPDX-License-Identifier: Apache-2.0
# 32-bit x86, which a 64-bit kernel runs beside its own.
set(COMPILER_PREFIX i686-linux-gnu)
set(FOREIGN_LIBRARIES i386-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR i686)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
