# SPDX-License-Identifier: Apache-2.0
# 32-bit ARM with hardware floating point; what is built runs in an emulator.
set(COMPILER_PREFIX arm-linux-gnueabihf)
set(FOREIGN_LIBRARIES arm-linux-gnueabihf)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static)
# Nothing here was built with a compiler that passed arguments otherwise.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
