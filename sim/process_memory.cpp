// SPDX-License-Identifier: Apache-2.0
#include "sim/process_memory.h"

#include <sys/uio.h>

namespace sim {
namespace {

iovec remote_range(uint32_t address, size_t size) {
    // An address of another process is never a pointer of this one. NOLINTNEXTLINE(*-int-to-ptr)
    return {reinterpret_cast<void*>(static_cast<uintptr_t>(address)), size};
}

}  // namespace

bool ProcessMemory::read(uint32_t address, std::span<uint8_t> into) {
    const iovec local = {into.data(), into.size()};
    const iovec remote = remote_range(address, into.size());
    return process_vm_readv(thread_, &local, 1, &remote, 1, 0) == static_cast<ssize_t>(into.size());
}

bool ProcessMemory::write(uint32_t address, std::span<const uint8_t> from) {
    const iovec local = {const_cast<uint8_t*>(from.data()), from.size()};
    const iovec remote = remote_range(address, from.size());
    return process_vm_writev(thread_, &local, 1, &remote, 1, 0) ==
           static_cast<ssize_t>(from.size());
}

}  // namespace sim
