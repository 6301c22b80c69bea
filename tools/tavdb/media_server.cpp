// SPDX-License-Identifier: Apache-2.0
#include "media_server.h"

#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>

#include "mediafile/media_message.h"
#include "mediafile/transfer.h"
#include "tavdb_platform.h"

namespace tavdb::command {

namespace {

using image::Descriptor;
using image::Fault;
using image::FaultKind;
using image::Status;

constexpr int kBacklog = 64;
constexpr size_t kClientsMax = 900;
constexpr int kWaitMs = 250;  // a signal between a look at it and the wait is noticed this much later
constexpr int kReadyMost = 64;

/// A request as it came.
struct Received {
    MediaRequest request;
    std::array<char, kMessageDataMax> data;
    int32_t dataBytes;
};

MediaReply failure(uint32_t error) {
    return {-1, error};
}

/// @return false when the client is gone or cannot be answered
bool send(int socket, const MediaReply &reply, const char *data = nullptr, int32_t bytes = 0) {
    std::array<iovec, 2> parts = {iovec{const_cast<MediaReply *>(&reply), sizeof reply},
                                  iovec{const_cast<char *>(data), static_cast<size_t>(bytes)}};
    msghdr message = {};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    // A client that does not fetch its replies is not waited for.
    return retried([&] { return sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT); }) >= 0;
}

/// @return the size of the message; 0 when the client is gone, -1 when nothing came or it is no message
ssize_t receive(int socket, Received &received) {
    std::array<iovec, 2> parts = {iovec{&received.request, sizeof received.request},
                                  iovec{received.data.data(), received.data.size()}};
    msghdr message = {};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    const ssize_t size = retried([&] { return recvmsg(socket, &message, MSG_DONTWAIT); });
    if (size <= 0)
        return size < 0 && errno == EAGAIN ? -1 : 0;
    if (size < static_cast<ssize_t>(sizeof received.request) || (message.msg_flags & MSG_TRUNC) != 0)
        received.request.operation = {};  // understood by nobody
    received.dataBytes = static_cast<int32_t>(size - static_cast<ssize_t>(sizeof received.request));
    return size;
}

/// Whether a request means something. Who sends others does not speak this protocol.
bool isSound(const Received &received) {
    const auto &request = received.request;
    const bool isWrite = request.operation == MediaOperation::write;
    if (request.operation < MediaOperation::open || request.operation > MediaOperation::sync)
        return false;
    if (received.dataBytes != (isWrite ? request.length : 0))
        return false;
    const bool isTransfer = isWrite || request.operation == MediaOperation::read;
    return !isTransfer || (request.length >= 0 && request.length <= kMessageDataMax && request.offset >= 0);
}

/// An offset or a position as the functions of media take it.
template <typename To>
bool fits(int64_t number) {
    return number >= std::numeric_limits<To>::min() && number <= std::numeric_limits<To>::max();
}

/// Does what was asked for; what is read goes where the data of a write were.
MediaReply perform(int fd, Received &received, bool readOnly) {
    const auto &request = received.request;
    const auto offset = static_cast<uint32_t>(request.offset);
    MediaReply reply = {0, 0};
    switch (request.operation) {
        case MediaOperation::open:
            break;
        case MediaOperation::read:
            if (!fits<uint32_t>(request.offset))
                return failure(EFBIG);
            reply.result = tavdbFileRead(fd, received.data.data(), request.length, offset, &reply.error);
            break;
        case MediaOperation::write:
            if (readOnly || !fits<uint32_t>(request.offset))
                return failure(readOnly ? EROFS : EFBIG);
            reply.result = tavdbFileWrite(fd, received.data.data(), request.length, offset, &reply.error);
            break;
        case MediaOperation::seek:
            if (!fits<int32_t>(request.offset))
                return failure(EOVERFLOW);
            reply.result =
                tavdbFileSeek(fd, static_cast<int32_t>(request.offset), received.request.length, &reply.error);
            break;
        case MediaOperation::sync:
            reply.result = tavdbFileSync3(fd, &reply.error, 0);
            break;
    }
    return reply;
}

bool isMember(int socket, const std::vector<gid_t> &groups, gid_t primary) {
    std::vector<gid_t> peers(256);
    socklen_t bytes = static_cast<socklen_t>(peers.size() * sizeof(gid_t));
    if (getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, peers.data(), &bytes) != 0)
        bytes = 0;
    peers.resize(bytes / sizeof(gid_t));
    peers.push_back(primary);
    return std::any_of(peers.begin(), peers.end(),
                       [&](gid_t gid) { return std::find(groups.begin(), groups.end(), gid) != groups.end(); });
}

}  // namespace

MediaServer::MediaServer(AllowedPeers allowed, bool readOnly)
    : allowed_(std::move(allowed)), readOnly_(readOnly), watched_(epoll_create1(EPOLL_CLOEXEC)) {}

MediaServer::~MediaServer() {
    for (const auto &image : images_)
        unlink(image.socketPath.c_str());
}

Status MediaServer::add(const std::string &imagePath, const std::string &socketPath) {
    uint32_t error = 0;
    const int fd =
        readOnly_ ? tavdbFileOpenRom(imagePath.c_str(), 0, &error) : tavdbFileOpenHD(imagePath.c_str(), 0, &error);
    Image image{Descriptor(fd), Descriptor(), socketPath};
    if (fd < 0)
        return image::faultIn(imagePath, image::faultOfError(static_cast<int>(error), "cannot be opened"));
    // Held while the server lives: the socket of one that died may be removed then.
    if (flock(fd, LOCK_EX | LOCK_NB) != 0)
        return image::faultIn(imagePath, Fault{FaultKind::locked, "is served by another server"});
    if (auto fault = listenAt(socketPath, image))
        return image::faultIn(socketPath, std::move(*fault));
    images_.push_back(std::move(image));
    return std::nullopt;
}

Status MediaServer::listenAt(const std::string &path, Image &image) const {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return Fault{FaultKind::failed, "is too long for a socket's path"};
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode))
        unlink(path.c_str());
    Descriptor listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const auto *const name = reinterpret_cast<const sockaddr *>(&address);
    if (!listener.isOpen() || bind(listener.get(), name, sizeof address) != 0)
        return image::faultOfError(errno, "cannot be made");
    // Whoever connects is asked who he is; the file's rights are a first fence only.
    if (chmod(path.c_str(), allowed_.isEmpty() ? 0600 : 0666) != 0 || listen(listener.get(), kBacklog) != 0 ||
        !watch(listener.get()))
        return image::faultOfError(errno, "cannot be made");
    image.listener = std::move(listener);
    return std::nullopt;
}

bool MediaServer::watch(int socket) const {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = socket;
    return epoll_ctl(watched_.get(), EPOLL_CTL_ADD, socket, &event) == 0;
}

int MediaServer::refusalOf(int socket) const {
    ucred peer = {};
    socklen_t size = sizeof peer;
    if (clients_.size() >= kClientsMax)
        return EMFILE;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return errno;
    const bool isAllowed = peer.uid == 0 || peer.uid == geteuid() ||
                           std::find(allowed_.users.begin(), allowed_.users.end(), peer.uid) != allowed_.users.end() ||
                           isMember(socket, allowed_.groups, peer.gid);
    return isAllowed ? 0 : EACCES;
}

void MediaServer::accept(const Image &image) {
    Descriptor socket(accept4(image.listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket.isOpen())
        return;
    const int refusal = refusalOf(socket.get());
    const auto greeting = refusal == 0 ? MediaReply{kMediaProtocol, 0} : failure(static_cast<uint32_t>(refusal));
    const int number = socket.get();
    if (send(number, greeting) && refusal == 0 && watch(number))
        clients_.emplace(number, Client{std::move(socket), image.file.get()});
}

/// @return false when the connection is to end
bool MediaServer::serve(const Client &client) {
    static Received received;  // large, and used by one thread
    const ssize_t size = receive(client.socket.get(), received);
    if (size <= 0)
        return size < 0;
    if (!isSound(received)) {
        send(client.socket.get(), failure(EPROTO));
        return false;
    }
    const auto reply = perform(client.image, received, readOnly_);
    const bool isRead = received.request.operation == MediaOperation::read;
    return send(client.socket.get(), reply, received.data.data(), isRead ? std::max(reply.result, 0) : 0);
}

void MediaServer::serveReady(const std::vector<int> &sockets) {
    for (const int socket : sockets)
        if (const auto client = clients_.find(socket); client != clients_.end() && !serve(client->second))
            clients_.erase(client);
    // Only then: who comes in may get the number of a socket that was closed.
    for (const auto &image : images_)
        if (std::find(sockets.begin(), sockets.end(), image.listener.get()) != sockets.end())
            accept(image);
}

Status MediaServer::run(bool (*isEnding)()) {
    std::array<epoll_event, kReadyMost> events;
    std::vector<int> sockets;
    while (!isEnding()) {
        const int count = epoll_wait(watched_.get(), events.data(), kReadyMost, kWaitMs);
        if (count < 0 && errno != EINTR)
            return image::faultOfError(errno, "cannot wait for clients");
        sockets.clear();
        for (int i = 0; i < count; i++)
            sockets.push_back(events[static_cast<size_t>(i)].data.fd);
        serveReady(sockets);
    }
    return std::nullopt;
}

}  // namespace tavdb::command
