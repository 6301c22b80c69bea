# SPDX-License-Identifier: Apache-2.0
# The first target: 32-bit big-endian PowerPC with hard float, built with Debian's
# cross compiler; programs run under qemu's user emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR powerpc)
set(CMAKE_C_COMPILER powerpc-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER powerpc-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc -L /usr/powerpc-linux-gnu)
# The second folder is what scripts/powerpc_packages.sh makes.
set(CMAKE_FIND_ROOT_PATH /usr/powerpc-linux-gnu ${CMAKE_CURRENT_LIST_DIR}/../build/powerpc-packages)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
