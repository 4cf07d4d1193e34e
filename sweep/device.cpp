// SPDX-License-Identifier: Apache-2.0
// The calls of the simulated device.
#include "sweep/device.h"

#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "sim/channel_names.h"

namespace sweep {
namespace {

constexpr const char* kStateFile = "/sys/class/remoteproc//remoteproc2/state";
constexpr const char* kUeventsPath = "uevents";
constexpr size_t kLongestDownloadMessage = 44;

sim::Channel channel_of(const std::string& path) {
    for (const sim::ChannelName& name : sim::kChannelNames) {
        if (path == name.path) return name.channel;
    }
    return sim::Channel::kDfu;
}

Bytes bytes_of(const std::string& text) {
    return {text.begin(), text.end()};
}

// The other end of a pipe has the other letter.
std::string other_end(std::string path) {
    path.back() = path.back() == 'r' ? 'w' : 'r';
    return path;
}

}  // namespace

NodeKind kind_of(const std::string& path) {
    if (path == "/dev/marlo_com_dev") return NodeKind::kControl;
    if (path == "/sys/power/wake_lock") return NodeKind::kWakeLock;
    if (path == "/sys/power/wake_unlock") return NodeKind::kWakeUnlock;
    if (path == kUeventsPath) return NodeKind::kUevents;
    if (path.starts_with("pipe ")) return NodeKind::kPipe;
    const bool is_channel =
        std::any_of(std::begin(sim::kChannelNames), std::end(sim::kChannelNames),
                    [&path](const sim::ChannelName& name) { return path == name.path; });
    return is_channel ? NodeKind::kChannel : NodeKind::kFile;
}

int64_t Device::open(const std::string& path, int flags, uint32_t mode) {
    note({Operation::kOpen, flags, mode, -1, path});
    const NodeKind kind = kind_of(path);
    if (kind == NodeKind::kChannel) {
        ++progress_;
        Stream& stream = streams_[path];
        if (now_ < stream.closed_until) return -ENODEV;
        const int result = coprocessor_->open_channel(channel_of(path));
        if (result < 0) return result;
        stream.packets.clear();
        stream.position = 0;
        return add_descriptor({path, kind, nullptr});
    }
    if (kind != NodeKind::kFile) return add_descriptor({path, kind, nullptr});
    if (path == kStateFile) files_.add(path, bytes_of(coprocessor_->remoteproc_state()));
    int error = 0;
    auto file = files_.open(path, flags, mode, &error);
    if (file == nullptr) return error;
    return add_descriptor({path, kind, std::move(file)});
}

int Device::add_descriptor(Descriptor descriptor) {
    int fd = 3;
    while (descriptors_.count(fd) != 0) ++fd;
    descriptors_[fd] = std::move(descriptor);
    return fd;
}

int64_t Device::close(int fd) {
    note({Operation::kClose, fd});
    const auto found = descriptors_.find(fd);
    if (found == descriptors_.end()) return -EBADF;
    if (found->second.kind == NodeKind::kChannel) {
        streams_[found->second.path].packets.clear();
        coprocessor_->close_channel(channel_of(found->second.path));
    }
    descriptors_.erase(found);
    return 0;
}

int64_t Device::read(int fd, std::span<uint8_t> into, std::optional<int64_t> offset) {
    poll_events(fd);  // takes in what has come, before the read is written down
    note({Operation::kRead, fd, static_cast<int64_t>(into.size()), offset.value_or(-1)});
    const auto found = descriptors_.find(fd);
    if (found == descriptors_.end()) return -EBADF;
    Descriptor& descriptor = found->second;
    switch (descriptor.kind) {
        case NodeKind::kFile:
            return read_file(descriptor, into, offset);
        case NodeKind::kChannel:
            return read_channel(descriptor, into);
        case NodeKind::kPipe: {
            Bytes& bytes = descriptor.file->bytes;
            if (bytes.empty()) return poll_events(fd) == 0 ? kWouldWait : 0;
            const size_t count = std::min(bytes.size(), into.size());
            std::copy_n(bytes.begin(), count, into.begin());
            bytes.erase(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(count));
            return static_cast<int64_t>(count);
        }
        default:
            return -EINVAL;
    }
}

int64_t Device::read_file(Descriptor& descriptor, std::span<uint8_t> into,
                          std::optional<int64_t> offset) {
    if (S_ISDIR(descriptor.file->mode)) return -EISDIR;
    const Bytes& bytes = descriptor.file->bytes;
    const size_t at = offset ? static_cast<size_t>(*offset) : descriptor.position;
    const size_t count = at < bytes.size() ? std::min(into.size(), bytes.size() - at) : 0;
    if (count > 0) std::memcpy(into.data(), bytes.data() + at, count);
    if (!offset) descriptor.position += count;
    return static_cast<int64_t>(count);
}

// The rest of a packet stays for the next read; no read has bytes of two packets.
int64_t Device::read_channel(const Descriptor& descriptor, std::span<uint8_t> into) {
    if (coprocessor_->hung_up(channel_of(descriptor.path))) return 0;
    fetch_packets(descriptor.path);
    Stream& stream = streams_[descriptor.path];
    if (stream.packets.empty()) return kWouldWait;
    ++progress_;
    const Bytes& packet = stream.packets.front();
    const size_t count = std::min(into.size(), packet.size() - stream.position);
    std::memcpy(into.data(), packet.data() + stream.position, count);
    stream.position += count;
    note_length(descriptor.path, packet, stream.position);
    if (stream.position == packet.size()) {
        stream.packets.pop_front();
        stream.position = 0;
    }
    return static_cast<int64_t>(count);
}

// A download message that is too long, or may become so with what comes next, ends the daemon.
void Device::note_length(const std::string& path, const Bytes& packet, size_t read) {
    const size_t at = shape_of(channel_of(path)).length_at.value_or(packet.size());
    if (channel_of(path) != sim::Channel::kDfu || at + 4 > packet.size()) return;
    uint32_t length = 0;
    for (size_t i = 0; i < 4; ++i) length |= uint32_t{packet[at + i]} << (8 * i);
    if (length <= kLongestDownloadMessage) return;
    may_abort_ = true;
    must_abort_ |= packet.size() >= length && read == packet.size();
}

void Device::fetch_packets(const std::string& path) {
    const sim::Channel channel = channel_of(path);
    Stream& stream = streams_[path];
    while (stream.packets.empty() && coprocessor_->readable(channel)) {
        const Bytes packet = coprocessor_->take_packet(channel);
        if (packet_hook_) {
            const auto [kind, value] = packet_hook_(path, packet);
            if (kind != Disturbance::kNone) disturb_next_packet(kind, value);
        }
        for (Bytes& piece :
             disturbed(channel, disturbance_, disturbance_value_, packet, stream.last)) {
            stream.packets.push_back(std::move(piece));
        }
        disturbance_ = Disturbance::kNone;
        stream.last = packet;
    }
}

int64_t Device::write(int fd, std::span<const uint8_t> bytes, std::optional<int64_t> offset) {
    note({Operation::kWrite, fd, 0, offset.value_or(-1), std::string(bytes.begin(), bytes.end())});
    const auto found = descriptors_.find(fd);
    if (found == descriptors_.end()) return -EBADF;
    Descriptor& descriptor = found->second;
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    switch (descriptor.kind) {
        case NodeKind::kFile:
            ++progress_;
            return write_file(descriptor, bytes, offset);
        case NodeKind::kChannel:
            return write_channel(descriptor, bytes);
        case NodeKind::kWakeLock:
            coprocessor_->write_wake_lock(text);
            return static_cast<int64_t>(bytes.size());
        case NodeKind::kWakeUnlock:
            coprocessor_->write_wake_unlock(text);
            return static_cast<int64_t>(bytes.size());
        case NodeKind::kPipe:
            descriptor.file->bytes.insert(descriptor.file->bytes.end(), bytes.begin(), bytes.end());
            return static_cast<int64_t>(bytes.size());
        default:
            return -EINVAL;
    }
}

int64_t Device::write_file(Descriptor& descriptor, std::span<const uint8_t> bytes,
                           std::optional<int64_t> offset) {
    Bytes& contents = descriptor.file->bytes;
    const size_t at = offset ? static_cast<size_t>(*offset) : descriptor.position;
    contents.resize(std::max(contents.size(), at + bytes.size()));
    std::copy(bytes.begin(), bytes.end(), contents.begin() + static_cast<ptrdiff_t>(at));
    if (!offset) descriptor.position += bytes.size();
    return static_cast<int64_t>(bytes.size());
}

int64_t Device::write_channel(const Descriptor& descriptor, std::span<const uint8_t> bytes) {
    ++progress_;
    if (std::exchange(lose_next_write_, false)) return static_cast<int64_t>(bytes.size());
    return coprocessor_->receive(channel_of(descriptor.path), bytes);
}

int64_t Device::rename(const std::string& from, const std::string& to) {
    note({Operation::kRename, 0, 0, -1, from, to});
    ++progress_;
    return files_.rename(from, to);
}

int64_t Device::unlink(const std::string& path) {
    note({Operation::kUnlink, 0, 0, -1, path});
    ++progress_;
    return files_.unlink(path);
}

int64_t Device::make_pipe(int ends[2]) {
    note({Operation::kPipe});
    const std::string name = "pipe " + std::to_string(++pipes_);
    auto bytes = std::make_shared<MemoryFiles::File>(MemoryFiles::File{{}, S_IFIFO | 0600});
    ends[0] = add_descriptor({name + "r", NodeKind::kPipe, bytes});
    ends[1] = add_descriptor({name + "w", NodeKind::kPipe, bytes});
    return 0;
}

const std::string& Device::path_of(int fd) const {
    static const std::string none;
    const auto found = descriptors_.find(fd);
    return found == descriptors_.end() ? none : found->second.path;
}

std::shared_ptr<MemoryFiles::File> Device::file_of(int fd) const {
    const auto found = descriptors_.find(fd);
    return found == descriptors_.end() ? nullptr : found->second.file;
}

short Device::poll_events(int fd) {
    const auto found = descriptors_.find(fd);
    if (found == descriptors_.end()) return POLLNVAL;
    const Descriptor& descriptor = found->second;
    if (descriptor.kind == NodeKind::kPipe) {
        if (!descriptor.file->bytes.empty()) return POLLIN;
        const std::string other = other_end(descriptor.path);
        const bool has_other =
            std::any_of(descriptors_.begin(), descriptors_.end(),
                        [&other](const auto& entry) { return entry.second.path == other; });
        return has_other ? 0 : POLLHUP;
    }
    if (descriptor.kind != NodeKind::kChannel) return POLLIN | POLLOUT;
    if (coprocessor_->hung_up(channel_of(descriptor.path))) return POLLHUP;
    fetch_packets(descriptor.path);
    const bool readable = !streams_[descriptor.path].packets.empty();
    return static_cast<short>(POLLOUT | (readable ? POLLIN : 0));
}

int Device::open_uevents() {
    note({Operation::kOpenUevents});
    return add_descriptor({kUeventsPath, NodeKind::kUevents, nullptr});
}

std::string Device::receive_uevent() {
    note({Operation::kReceive});
    ++progress_;
    std::string message = std::move(uevents_.front());
    uevents_.pop_front();
    return message;
}

std::string Device::property(const std::string& name) const {
    const auto found = properties_.find(name);
    return found == properties_.end() ? "" : found->second;
}

void Device::set_property(const std::string& name, const std::string& value) {
    note({Operation::kSetProperty, 0, 0, -1, name, value});
    ++progress_;
    properties_[name] = value;
}

}  // namespace sweep
