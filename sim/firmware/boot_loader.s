# SPDX-License-Identifier: Apache-2.0
# The boot loader of the generated firmware. Nothing runs it: it is there for its segments, one of
# which is the block that the host fills in before it serves the flash image.
    .section .vectors, "a", @progbits
    .long boot_stack_top
    .long boot_start
    .rept 62
    .long boot_start
    .endr

    .section .text.boot, "ax", @progbits
    .global boot_start
boot_start:
    .fill 1536, 4, 0xe7fee7fe

    .section .debug_policy, "aw", @progbits
    .global debug_policy
debug_policy:
    .long 0xdeadbeef            # debug policy
    .long 0xdeadbeef            # platform id
    .long 0xdeadbeef            # major id
    .long 0xdeadbeef            # minor id
    .long 0xdeadbeef            # subtype
    .fill 11, 4, 0x5a5a5a5a     # what follows the block must stay

    .section .data.boot, "aw", @progbits
    .asciz "boot loader of generated firmware"
    .fill 300, 4, 0x13579bdf

    .section .bss.boot, "aw", @nobits
    .skip 4096
    .global boot_stack_top
boot_stack_top:
    .section .note.GNU-stack, "", @progbits
