// SPDX-License-Identifier: Apache-2.0
// The linked boot loader as bytes of the library.
    .section .rodata
    .global sim_boot_loader_start
    .global sim_boot_loader_end
sim_boot_loader_start:
    .incbin "boot_loader.elf"
sim_boot_loader_end:
    .byte 0
    .section .note.GNU-stack, "", %progbits
