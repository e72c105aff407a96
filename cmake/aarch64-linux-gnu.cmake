# Cross build for AArch64, the device's architecture, with Debian's cross
# toolchain (g++-aarch64-linux-gnu) and its multiarch arm64 packages
# (liblog, libcutils, GoogleTest under /usr/lib/aarch64-linux-gnu). Test
# programs run under qemu-user; see scripts/binfmt-aarch64.sh.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Headers and libraries of the arm64 packages live in the host's /usr, beside
# the amd64 ones; programs (aidl, python) are the host's own.
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu /usr)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Runs test programs (test discovery included). The arm64 C library is
# installed multiarch (libc6:arm64), so the emulator needs no -L prefix; a
# prefix would also redirect the runtime's own file accesses, such as its
# registry directory, into the prefix.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static)
