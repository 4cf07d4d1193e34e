// SPDX-License-Identifier: Apache-2.0
// The report's page as bytes of the library.
    .macro embedded name
    .global sim_page_\name\()_start
sim_page_\name\()_start:
    .endm
    .macro embedded_end name
    .global sim_page_\name\()_end
sim_page_\name\()_end:
    .endm

    .section .rodata
    embedded html
    .incbin "page.html"
    embedded_end html
    embedded css
    .incbin "page.css"
    embedded_end css
    embedded js
    .incbin "axis.js"
    .incbin "details.js"
    .incbin "lanes.js"
    .incbin "view.js"
    .incbin "tables.js"
    .incbin "page.js"
    embedded_end js
    .byte 0
    .section .note.GNU-stack, "", %progbits
