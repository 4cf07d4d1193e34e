// SPDX-License-Identifier: Apache-2.0
#include "bench/peer_transfers.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/child_process.h"

namespace bench {
namespace {

using Words = std::vector<std::string>;

// A port of this machine that nobody else has.
Descriptor make_udp_socket() {
    Descriptor made(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        throw std::runtime_error(std::string("no port for a TFTP server: ") + std::strerror(errno));
    }
    return made;
}

uint16_t port_of(const Descriptor& socket) {
    sockaddr_in address{};
    socklen_t size = sizeof(address);
    ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

// The server is given its socket, as inetd does it: nobody has to wait until it listens. It gives
// up by itself after a minute without a request.
class Tftp : public Peer {
  public:
    explicit Tftp(const SentFile& file)
        : file_(file),
          socket_(make_udp_socket()),
          server_(
              {"/usr/sbin/atftpd", "--verbose=0", "--logfile", "/dev/null", "--tftpd-timeout", "60",
               "--user", "nobody", "--group", "nogroup", file.path().parent_path().string()},
              {.input = socket_.get()}) {}

    Transfer send() override {
        const double cpu_before = server_.cpu_seconds();
        const double seconds = receive("/dev/null");
        return transfer(file_.size(), seconds, server_.cpu_seconds() - cpu_before);
    }

    void check() override {
        receive(file_.received_directory() / file_.path().filename());
        file_.check_received("curl");
    }

  private:
    double receive(const std::filesystem::path& into) {
        const Descriptor report = make_memory_file();
        const std::string address = "tftp://127.0.0.1:" + std::to_string(port_of(socket_)) + "/" +
                                    file_.path().filename().string();
        ChildProcess client(
            {"curl", "--silent", "--show-error", "--tftp-blksize", "4096", "--output",
             into.string(), "--write-out", "%{size_download} %{time_total}", address},
            {.output = report.get()});
        client.finish();
        uint64_t bytes = 0;
        double seconds = 0;
        std::istringstream(contents_of(report)) >> bytes >> seconds;
        if (bytes != file_.size() || seconds <= 0) {
            throw std::runtime_error("curl received " + std::to_string(bytes) + " bytes, not " +
                                     std::to_string(file_.size()));
        }
        return seconds;
    }

    const SentFile& file_;
    Descriptor socket_;
    ChildProcess server_;
};

// Two programs that talk over a pair of pipes, as they would over a line.
class OverPipes : public Peer {
  public:
    // The receiver to nowhere, and to a file in the directory that it runs in.
    struct Receivers {
        Words dropping;
        Words keeping;
    };
    OverPipes(const SentFile& file, Words sender, Receivers receivers)
        : file_(file), sender_(std::move(sender)), receivers_(std::move(receivers)) {}

    Transfer send() override { return send_to(receivers_.dropping); }

    void check() override {
        send_to(receivers_.keeping);
        file_.check_received(receivers_.keeping.front());
    }

  private:
    struct Both {
        ChildProcess receiver;
        ChildProcess sender;
    };

    // The pipes are the programs' alone once they run: when one ends, the other sees it.
    Both start(const Words& receiver) const {
        const Pipe data = make_pipe();
        const Pipe answers = make_pipe();
        const ChildProcess::Wiring receiving = {.input = data.output.get(),
                                                .output = answers.input.get(),
                                                .directory = file_.received_directory().string()};
        const ChildProcess::Wiring sending = {.input = answers.output.get(),
                                              .output = data.input.get()};
        return Both{ChildProcess(receiver, receiving), ChildProcess(sender_, sending)};
    }

    Transfer send_to(const Words& receiver) const {
        const auto begin = std::chrono::steady_clock::now();
        Both both = start(receiver);
        const double cpu = both.sender.finish();
        both.receiver.finish();
        const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
        return transfer(file_.size(), passed.count(), cpu);
    }

    const SentFile& file_;
    Words sender_;
    Receivers receivers_;
};

std::string bytes_of(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

Transfer transfer(uint64_t bytes, double seconds, double sender_cpu_seconds) {
    constexpr double kGib = 1 << 30;
    const auto count = static_cast<double>(bytes);
    return {count / 1e6 / seconds, sender_cpu_seconds * kGib / count};
}

SentFile::SentFile(std::span<const uint8_t> contents) : size_(contents.size()) {
    // Who serves it may be another user.
    std::filesystem::permissions(sent_.path(), std::filesystem::perms(0755));
    std::ofstream file(path(), std::ios::binary);
    file.write(reinterpret_cast<const char*>(contents.data()),
               static_cast<std::streamsize>(contents.size()));
    file.close();
    std::filesystem::permissions(path(), std::filesystem::perms(0644));
    if (!file) {
        throw std::runtime_error(path().string() + " cannot be written");
    }
}

void SentFile::check_received(const std::string& receiver) const {
    const std::filesystem::path received = received_directory() / path().filename();
    if (bytes_of(received) != bytes_of(path())) {
        throw std::runtime_error(receiver + " received something else than was sent");
    }
    std::filesystem::remove(received);
}

std::unique_ptr<Peer> make_tftp(const SentFile& file) {
    return std::make_unique<Tftp>(file);
}

// Its window is without limit unless asked for: `--windowsize 0` asks, and makes it wait for 20 s.
std::unique_ptr<Peer> make_zmodem(const SentFile& file) {
    return std::make_unique<OverPipes>(
        file, Words{"sz", "--quiet", "--binary", "--overwrite", "--start-8k", file.path().string()},
        OverPipes::Receivers{.dropping = {"rz", "--quiet", "--binary", "--overwrite", "--null"},
                             .keeping = {"rz", "--quiet", "--binary", "--overwrite"}});
}

// The name of what it receives is the receiver's to say.
std::unique_ptr<Peer> make_xmodem(const SentFile& file) {
    return std::make_unique<OverPipes>(
        file, Words{"sx", "--quiet", "--binary", "--1k", file.path().string()},
        OverPipes::Receivers{.dropping = {"rx", "--quiet", "--binary", "--with-crc", "/dev/null"},
                             .keeping = {"rx", "--quiet", "--binary", "--with-crc",
                                         file.path().filename().string()}});
}

}  // namespace bench
