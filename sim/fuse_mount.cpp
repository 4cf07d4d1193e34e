// SPDX-License-Identifier: Apache-2.0
#include "sim/fuse_mount.h"

#include <fcntl.h>
#include <linux/fuse.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace sim {
namespace {

// The tree never changes, so the kernel may remember names and attributes for as long as it likes.
constexpr double kCacheSeconds = 3600;

std::string& last_fuse_message() {
    static std::string message;
    return message;
}

void keep_fuse_message(fuse_log_level, const char* format, va_list arguments) {
    std::array<char, 256> text{};
    vsnprintf(text.data(), text.size(), format, arguments);
    last_fuse_message() = text.data();
}

const FileTree& tree_of(fuse_req_t request) {
    return *static_cast<const FileTree*>(fuse_req_userdata(request));
}

struct stat attributes(fuse_ino_t inode, const FileTree::Node& node) {
    struct stat status {};
    status.st_ino = inode;
    status.st_uid = geteuid();
    status.st_gid = getegid();
    if (node.file) {
        status.st_mode = S_IFREG | node.file->permissions();
        status.st_nlink = 1;
        status.st_size = 4096;  // as sysfs shows it: the length is known only by reading
    } else {
        status.st_mode = S_IFDIR | 0755;
        status.st_nlink = 2;
    }
    return status;
}

void lookup(fuse_req_t request, fuse_ino_t parent, const char* name) {
    const FileTree& tree = tree_of(request);
    fuse_entry_param entry{};
    entry.ino = tree.child(parent, name);
    if (!entry.ino) {
        fuse_reply_err(request, ENOENT);
        return;
    }
    entry.attr = attributes(entry.ino, *tree.find(entry.ino));
    entry.attr_timeout = kCacheSeconds;
    entry.entry_timeout = kCacheSeconds;
    fuse_reply_entry(request, &entry);
}

void getattr(fuse_req_t request, fuse_ino_t inode, fuse_file_info*) {
    const FileTree::Node* node = tree_of(request).find(inode);
    if (!node) {
        fuse_reply_err(request, ENOENT);
        return;
    }
    const struct stat status = attributes(inode, *node);
    fuse_reply_attr(request, &status, kCacheSeconds);
}

// A shell's `echo 1 > file` truncates first; a device file takes that and stays as it is.
void setattr(fuse_req_t request, fuse_ino_t inode, struct stat*, int changes,
             fuse_file_info* info) {
    if (changes & (FUSE_SET_ATTR_MODE | FUSE_SET_ATTR_UID | FUSE_SET_ATTR_GID)) {
        fuse_reply_err(request, EPERM);
        return;
    }
    getattr(request, inode, info);
}

void readdir(fuse_req_t request, fuse_ino_t inode, size_t size, off_t offset, fuse_file_info*) {
    const FileTree& tree = tree_of(request);
    const FileTree::Node* directory = tree.find(inode);
    if (!directory || directory->file) {
        fuse_reply_err(request, ENOTDIR);
        return;
    }
    std::vector<std::pair<std::string, fuse_ino_t>> entries = {{".", inode},
                                                               {"..", directory->parent}};
    entries.insert(entries.end(), directory->children.begin(), directory->children.end());
    std::vector<char> buffer(size);
    size_t used = 0;
    for (size_t i = static_cast<size_t>(offset); i < entries.size(); ++i) {
        const auto& [name, child] = entries[i];
        const struct stat status = attributes(child, *tree.find(child));
        const size_t length = fuse_add_direntry(request, buffer.data() + used, size - used,
                                                name.c_str(), &status, static_cast<off_t>(i + 1));
        if (length > size - used) break;
        used += length;
    }
    fuse_reply_buf(request, buffer.data(), used);
}

File* file_of(fuse_req_t request, fuse_ino_t inode) {
    const FileTree::Node* node = tree_of(request).find(inode);
    return node ? node->file.get() : nullptr;
}

bool access_allowed(const File& file, int flags) {
    const int access = flags & O_ACCMODE;
    if (access != O_WRONLY && !(file.permissions() & 0444)) return false;
    return access == O_RDONLY || (file.permissions() & 0222);
}

// As fuse_reply_open, which cannot say that a file is a stream. Without that a read that waits
// keeps every write to the same descriptor waiting: the kernel guards the position that a stream
// has not.
int reply_open(fuse_req_t request, const File& file) {
    fuse_open_out reply{};
    reply.open_flags = FOPEN_DIRECT_IO;  // each read asks anew, a write arrives as it was made
    if (file.stream()) reply.open_flags |= FOPEN_NONSEEKABLE | FOPEN_STREAM;
    return fuse_reply_buf(request, reinterpret_cast<const char*>(&reply), sizeof reply);
}

void open(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info) {
    File* file = file_of(request, inode);
    if (!file) {
        fuse_reply_err(request, EISDIR);
        return;
    }
    const int result = access_allowed(*file, info->flags) ? file->open() : -EACCES;
    if (result < 0) {
        fuse_reply_err(request, -result);
        return;
    }
    // ENOENT: the caller was killed before it got the descriptor; no release will follow.
    if (reply_open(request, *file) == -ENOENT) file->release();
}

void release(fuse_req_t request, fuse_ino_t inode, fuse_file_info*) {
    if (File* file = file_of(request, inode)) file->release();
    fuse_reply_err(request, 0);
}

void read(fuse_req_t request, fuse_ino_t inode, size_t size, off_t offset, fuse_file_info* info) {
    file_of(request, inode)->read(request, size, offset, info->flags & O_NONBLOCK);
}

void write(fuse_req_t request, fuse_ino_t inode, const char* data, size_t size, off_t,
           fuse_file_info*) {
    file_of(request, inode)->write(request, {data, size});
}

void ioctl(fuse_req_t request, fuse_ino_t inode, unsigned int command, void*, fuse_file_info*,
           unsigned int, const void* input, size_t input_size, size_t output_size) {
    File* file = file_of(request, inode);
    if (!file) {
        fuse_reply_err(request, ENOTTY);
        return;
    }
    file->ioctl(request, command, {static_cast<const uint8_t*>(input), input_size}, output_size);
}

void poll(fuse_req_t request, fuse_ino_t inode, fuse_file_info*, fuse_pollhandle* handle) {
    file_of(request, inode)->poll(request, handle);
}

fuse_lowlevel_ops operations() {
    fuse_lowlevel_ops ops{};
    ops.lookup = lookup;
    ops.getattr = getattr;
    ops.setattr = setattr;
    ops.readdir = readdir;
    ops.open = open;
    ops.release = release;
    ops.read = read;
    ops.write = write;
    ops.ioctl = ioctl;
    ops.poll = poll;
    return ops;
}

std::string advice() {
    if (access("/dev/fuse", F_OK) != 0) {
        return "/dev/fuse is missing: load it with `modprobe fuse` (in a container: start it with"
               " --device /dev/fuse --cap-add SYS_ADMIN)";
    }
    if (access("/dev/fuse", R_OK | W_OK) != 0) {
        return "/dev/fuse cannot be opened: run as root, or `chmod 666 /dev/fuse`";
    }
    if (geteuid() != 0 && access("/usr/bin/fusermount3", X_OK) != 0 &&
        access("/bin/fusermount3", X_OK) != 0) {
        return "fusermount3 is missing: `apt-get install fuse3`";
    }
    return "in a container it needs --device /dev/fuse --cap-add SYS_ADMIN";
}

}  // namespace

FuseMount::FuseMount(const std::filesystem::path& mount_point, const FileTree& tree) : tree_(tree) {
    fuse_set_log_func(keep_fuse_message);
    std::array<char*, 3> arguments = {const_cast<char*>("marlo-sim"), const_cast<char*>("-o"),
                                      const_cast<char*>("fsname=marlo-sim,subtype=marlo-sim")};
    fuse_args args = {static_cast<int>(arguments.size()), arguments.data(), 0};
    const fuse_lowlevel_ops ops = operations();
    session_ = fuse_session_new(&args, &ops, sizeof ops, const_cast<FileTree*>(&tree_));
    const bool mounted = session_ && fuse_session_mount(session_, mount_point.c_str()) == 0;
    fuse_opt_free_args(&args);
    if (!mounted) {
        if (session_) fuse_session_destroy(session_);
        std::string why = last_fuse_message();
        while (!why.empty() && why.back() == '\n') why.pop_back();
        throw MountError("cannot mount " + mount_point.string() + " with FUSE: " + advice() +
                         (why.empty() ? "" : " (" + why + ")"));
    }
    const int flags = fcntl(descriptor(), F_GETFL);
    fcntl(descriptor(), F_SETFL, flags | O_NONBLOCK);
}

FuseMount::~FuseMount() {
    fuse_session_unmount(session_);
    fuse_session_destroy(session_);
    std::free(buffer_.mem);
}

int FuseMount::descriptor() const {
    return fuse_session_fd(session_);
}

FuseMount::Received FuseMount::receive() {
    const int result = fuse_session_receive_buf(session_, &buffer_);
    if (result == -EAGAIN || result == -EINTR) return Received::kNothing;
    return result > 0 ? Received::kRequest : Received::kUnmounted;
}

void FuseMount::answer() {
    fuse_session_process_buf(session_, &buffer_);
}

}  // namespace sim
