/* SPDX-License-Identifier: Apache-2.0 */
/* Three segments that the linker script places where each test image wants them. */
    .section .first, "aw"
    .fill 8, 4, 0x11111111
    .section .second, "aw"
    .fill 8, 4, 0x22222222
    .section .third, "aw"
    .fill 8, 4, 0x33333333
    .section .note.GNU-stack, "", %progbits
