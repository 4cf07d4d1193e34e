// SPDX-License-Identifier: Apache-2.0
// The groups of figures, each in a source file of its own name. Each throws std::runtime_error,
// naming what is missing, where it cannot measure.
#pragma once

#include "bench/rounds.h"

namespace bench {

Figures crc(const Effort& effort);           // the checksum, beside zlib's and libdeflate's
Figures session(const Effort& effort);       // an image served over a socket pair
Figures fuse(const Effort& effort);          // the same through a file of the virtual co-processor
Figures instructions(const Effort& effort);  // of a fragment, counted
Figures growth(const Effort& effort);        // a fragment's cost with large images, many partitions
Figures peers(const Effort& effort);         // TFTP, ZMODEM and XMODEM on this machine
Figures rma(const Effort& effort);           // backing-file reads and writes
Figures loading(const Effort& effort);       // images from files into memory
Figures footprint(const Effort& effort);     // the daemon's size, memory, wake-ups, start

}  // namespace bench
