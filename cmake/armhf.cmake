# SPDX-License-Identifier: MIT
# Debian's cross compiler and multiarch libraries for armhf; the root that scripts/cross makes has both.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(PKG_CONFIG_EXECUTABLE arm-linux-gnueabihf-pkg-config)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static)

# One compiler builds everything, so gcc's notes about the ABI of older compilers do not matter.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
