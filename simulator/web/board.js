/* SPDX-License-Identifier: MIT */
