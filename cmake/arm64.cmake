# SPDX-License-Identifier: MIT
# Debian's cross compiler and multiarch libraries for arm64; the root that scripts/cross makes has both.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(PKG_CONFIG_EXECUTABLE aarch64-linux-gnu-pkg-config)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static)
