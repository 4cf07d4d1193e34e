// SPDX-License-Identifier: Apache-2.0
#include "sim/file_tree.h"

#include <cerrno>

namespace sim {

void File::read(fuse_req_t request, size_t, off_t, bool) {
    fuse_reply_err(request, EACCES);
}

void File::write(fuse_req_t request, std::span<const char>) {
    fuse_reply_err(request, EACCES);
}

void File::ioctl(fuse_req_t request, uint32_t, std::span<const uint8_t>, size_t) {
    fuse_reply_err(request, ENOTTY);
}

void File::poll(fuse_req_t request, fuse_pollhandle* handle) {
    if (handle) fuse_pollhandle_destroy(handle);
    fuse_reply_err(request, ENOSYS);
}

FileTree::FileTree() {
    nodes_.push_back({"", FUSE_ROOT_ID, {}, nullptr});
}

File& FileTree::add(std::string_view path, std::unique_ptr<File> file) {
    fuse_ino_t inode = FUSE_ROOT_ID;
    while (!path.empty()) {
        const size_t slash = std::min(path.find('/'), path.size());
        const std::string_view name = path.substr(0, slash);
        const fuse_ino_t known = child(inode, name);
        inode = known ? known : add_node(inode, name);
        path.remove_prefix(std::min(slash + 1, path.size()));
    }
    Node& node = nodes_[inode - FUSE_ROOT_ID];
    node.file = std::move(file);
    return *node.file;
}

const FileTree::Node* FileTree::find(fuse_ino_t inode) const {
    if (inode < FUSE_ROOT_ID || inode - FUSE_ROOT_ID >= nodes_.size()) return nullptr;
    return &nodes_[inode - FUSE_ROOT_ID];
}

fuse_ino_t FileTree::child(fuse_ino_t directory, std::string_view name) const {
    const Node* node = find(directory);
    if (!node) return 0;
    const auto found = node->children.find(name);
    return found == node->children.end() ? 0 : found->second;
}

fuse_ino_t FileTree::add_node(fuse_ino_t parent, std::string_view name) {
    const fuse_ino_t inode = nodes_.size() + FUSE_ROOT_ID;
    nodes_.push_back({std::string(name), parent, {}, nullptr});
    nodes_[parent - FUSE_ROOT_ID].children.emplace(name, inode);
    return inode;
}

}  // namespace sim
