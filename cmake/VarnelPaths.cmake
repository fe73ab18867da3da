# SPDX-License-Identifier: MIT
# Directories of the files that belong to other programs (systemd, udev) or that only a device image needs. A packager
# sets them for the distribution; relative paths start at the prefix.

set(VARNEL_UNIT_DIR lib/systemd/system CACHE STRING "Where systemd looks for units")
set(VARNEL_UDEV_RULES_DIR lib/udev/rules.d CACHE STRING "Where udev looks for rules")
set(VARNEL_SYSUSERS_DIR lib/sysusers.d CACHE STRING "Where systemd looks for the users that packages need")
set(VARNEL_SYSCTL_DIR lib/sysctl.d CACHE STRING "Where systemd looks for settings of the kernel")
set(VARNEL_TMPFILES_DIR lib/tmpfiles.d CACHE STRING "Where systemd looks for the files to make at start")
set(VARNEL_PICTURE_DIR ${CMAKE_INSTALL_DATADIR} CACHE STRING
    "Where the panel's own pictures go; ErrorImagePath in the panel's settings has to name or lead to it")
set(VARNEL_SCRIPT_DIR ${CMAKE_INSTALL_BINDIR} CACHE STRING
    "Where the device scripts go; ScriptDir in the panel's settings has to name or lead to it")

foreach(name IN ITEMS PICTURE_DIR SCRIPT_DIR)
    cmake_path(ABSOLUTE_PATH VARNEL_${name} BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} OUTPUT_VARIABLE VARNEL_FULL_${name})
endforeach()
