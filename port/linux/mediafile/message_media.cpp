// SPDX-License-Identifier: Apache-2.0
// Message media: a media server owns the image, and every access is a request to
// it. The connection to a server is kept, and made anew by the access after one
// that failed. A server that died costs each of its media one error number.
#include "mediafile/message_media.h"

#include <pthread.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/un.h>

#include "mediafile/media_message.h"
#include "mediafile/media_path.h"
#include "mediafile/transfer.h"
#include "tavdb_platform.h"

namespace tavdb {
namespace {

constexpr uint32_t kConnectionsMax = 128;
/// A server answers at once, but a sync may take as long as the device.
constexpr time_t kTimeoutSeconds = 30;

struct Connection {
    char *hint;
    int socket;  ///< -1 while there is no connection
};

Connection s_connections[kConnectionsMax];
uint32_t s_count;
/// One for all: a process's requests meet in the one server anyway.
pthread_mutex_t s_lock = PTHREAD_MUTEX_INITIALIZER;

class MessageLock {
public:
    MessageLock() {
        pthread_mutex_lock(&s_lock);
    }
    ~MessageLock() {
        pthread_mutex_unlock(&s_lock);
    }
    MessageLock(const MessageLock &) = delete;
    MessageLock &operator=(const MessageLock &) = delete;
};

void disconnect(Connection &connection) {
    if (connection.socket >= 0)
        close(connection.socket);
    connection.socket = -1;
}

void disconnectAll() {
    for (uint32_t i = 0; i < s_count; i++)
        disconnect(s_connections[i]);
}

void beforeFork() {
    pthread_mutex_lock(&s_lock);
}

void afterForkInParent() {
    pthread_mutex_unlock(&s_lock);
}

/// Replies would go to whoever of parent and child reads first.
void afterForkInChild() {
    disconnectAll();
    pthread_mutex_unlock(&s_lock);
}

__attribute__((constructor)) void followForks() {
    pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
}

/// An error number for a connection that is of no use any more. @return -1
int32_t giveUp(Connection &connection, int error) {
    disconnect(connection);
    errno = error;
    return -1;
}

int addressOf(const char *hint, sockaddr_un &address) {
    MediaPath path;
    const int error = path.resolve(hint);
    if (error != 0)
        return error;
    const size_t size = strlen(path.text()) + 1;
    if (size > sizeof address.sun_path)
        return ENAMETOOLONG;
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.text(), size);
    return 0;
}

/// Receives a reply and, behind it, up to length bytes. @return bytes behind the reply, or -1 with errno
int32_t receive(Connection &connection, MediaReply &reply, void *buffer, int32_t length) {
    iovec parts[] = {{&reply, sizeof reply}, {buffer, static_cast<size_t>(length)}};
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    const ssize_t size = retried([&] { return recvmsg(connection.socket, &message, 0); });
    if (size < 0)
        return giveUp(connection, errno == EAGAIN ? ETIMEDOUT : errno);
    if (size == 0)
        return giveUp(connection, ECONNRESET);
    if (size < static_cast<ssize_t>(sizeof reply) || (message.msg_flags & MSG_TRUNC) != 0)
        return giveUp(connection, EPROTO);
    return static_cast<int32_t>(size) - static_cast<int32_t>(sizeof reply);
}

int32_t greet(Connection &connection) {
    MediaReply greeting;
    const int32_t more = receive(connection, greeting, nullptr, 0);
    if (more < 0)
        return -1;
    if (greeting.result == -1 && greeting.error != 0)
        return giveUp(connection, static_cast<int>(greeting.error));
    return greeting.result == kMediaProtocol ? 0 : giveUp(connection, EPROTO);
}

int32_t connectTo(Connection &connection) {
    if (connection.socket >= 0)
        return 0;
    sockaddr_un address = {};
    const int error = addressOf(connection.hint, address);
    if (error != 0)
        return giveUp(connection, error);
    connection.socket = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (connection.socket < 0)
        return -1;
    const timeval timeout = {kTimeoutSeconds, 0};
    setsockopt(connection.socket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    setsockopt(connection.socket, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    const auto *const name = reinterpret_cast<const sockaddr *>(&address);
    if (retried([&] { return connect(connection.socket, name, sizeof address); }) != 0)
        return giveUp(connection, errno);
    return greet(connection);
}

int32_t send(Connection &connection, const MediaRequest &request, const void *data, int32_t length) {
    iovec parts[] = {{const_cast<MediaRequest *>(&request), sizeof request},
                     {const_cast<void *>(data), static_cast<size_t>(length)}};
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    if (retried([&] { return sendmsg(connection.socket, &message, MSG_NOSIGNAL); }) < 0)
        return giveUp(connection, errno == EAGAIN ? ETIMEDOUT : errno);
    return 0;
}

/// The bytes of a write go out, those of a read come in.
struct Payload {
    const void *out;
    void *in;
};

/// @return the server's result; -1 with errno when it failed there or on the way
int32_t ask(Connection &connection, const MediaRequest &request, Payload payload) {
    const bool isWrite = request.operation == MediaOperation::write;
    const bool isRead = request.operation == MediaOperation::read;
    if (connectTo(connection) != 0 || send(connection, request, payload.out, isWrite ? request.length : 0) != 0)
        return -1;
    MediaReply reply;
    const int32_t more = receive(connection, reply, payload.in, isRead ? request.length : 0);
    if (more < 0)
        return -1;
    if (reply.result < 0) {
        errno = reply.error != 0 ? static_cast<int>(reply.error) : EIO;
        return -1;
    }
    const bool isPlausible = (!isRead && !isWrite) || reply.result <= request.length;
    return isPlausible && more == (isRead ? reply.result : 0) ? reply.result : giveUp(connection, EPROTO);
}

Connection *connectionOf(int32_t fd) {
    const auto index = static_cast<uint32_t>(fd);
    return index < s_count ? &s_connections[index] : nullptr;
}

/// The index of a hint's connection; a new one where there is none. @return -1 with errno when there are too many
int32_t find(const char *hint) {
    for (uint32_t i = 0; i < s_count; i++)
        if (strcmp(s_connections[i].hint, hint) == 0)
            return static_cast<int32_t>(i);
    const size_t size = strlen(hint) + 1;
    char *const copy =
        s_count < kConnectionsMax ? static_cast<char *>(tavOSWSubAllocMem(static_cast<uint32_t>(size))) : nullptr;
    if (copy == nullptr) {
        errno = s_count < kConnectionsMax ? ENOMEM : EMFILE;
        return -1;
    }
    memcpy(copy, hint, size);
    s_connections[s_count] = {copy, -1};
    return static_cast<int32_t>(s_count++);
}

/// One request, or the error number for the caller. @return the result, or -1
int32_t request(int32_t fd, const MediaRequest &request, uint32_t *err) {
    const MessageLock lock;
    Connection *const connection = connectionOf(fd);
    if (connection == nullptr)
        return failWith(err, EBADF);
    const int32_t result = ask(*connection, request, {});
    return result >= 0 ? result : failWith(err, errno);
}

int32_t upToOneMessage(size_t length) {
    return length < kMessageDataMax ? static_cast<int32_t>(length) : kMessageDataMax;
}

int32_t transfer(int32_t fd, MediaOperation operation, Payload payload, int32_t length, uint32_t offset,
                 uint32_t *err) {
    const bool isRead = operation == MediaOperation::read;
    const int error = checkTransfer(isRead ? payload.in : payload.out, length);
    if (error != 0)
        return failWith(err, error);
    const MessageLock lock;
    Connection *const connection = connectionOf(fd);
    if (connection == nullptr)
        return failWith(err, EBADF);
    const int32_t count = transferAll(length, [&](int32_t done, size_t left) -> ssize_t {
        const MediaRequest part = {operation, upToOneMessage(left), int64_t{offset} + done};
        return ask(*connection, part,
                   isRead ? Payload{nullptr, static_cast<char *>(payload.in) + done}
                          : Payload{static_cast<const char *>(payload.out) + done, nullptr});
    });
    return count >= 0 ? count : failWith(err, errno);
}

int32_t openMedium(const char *hint, uint32_t *err) {
    const MessageLock lock;
    const int32_t index = find(hint);
    if (index < 0)
        return failWith(err, errno);
    Connection &connection = s_connections[index];
    const MediaRequest opening = {MediaOperation::open, 0, 0};
    const bool wasConnected = connection.socket >= 0;
    int32_t result = ask(connection, opening, {});
    // The server may have been started anew since the last access: nothing is lost by asking again.
    if (result < 0 && wasConnected && connection.socket < 0)
        result = ask(connection, opening, {});
    return result >= 0 ? index : failWith(err, errno);
}

}  // namespace

int32_t syncMessageMedium(int32_t fd, uint32_t *err) {
    return request(fd, {MediaOperation::sync, 0, 0}, err) >= 0 ? 0 : -1;
}

void dropMessageMedia() {
    const MessageLock lock;
    disconnectAll();
    for (; s_count > 0; s_count--)
        tavOSWOrgFreeMemPart(0, s_connections[s_count - 1].hint);
}

uint32_t messageMediaSize() {
    return sizeof s_connections + sizeof s_count;
}

}  // namespace tavdb

int32_t tavdbMsgOpen(const char *hint, uint32_t, uint32_t *err) {
    if (hint == nullptr)
        return tavdb::failWith(err, EFAULT);
    return tavdb::openMedium(hint, err);
}

int32_t tavdbMsgClose(int32_t fd, uint32_t *err) {
    const tavdb::MessageLock lock;
    return tavdb::connectionOf(fd) != nullptr ? 0 : tavdb::failWith(err, EBADF);
}

int32_t tavdbMsgRead(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    return tavdb::transfer(fd, tavdb::MediaOperation::read, {nullptr, buffer}, length, offset, err);
}

int32_t tavdbMsgWrite(int32_t fd, const void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    return tavdb::transfer(fd, tavdb::MediaOperation::write, {buffer, nullptr}, length, offset, err);
}

int32_t tavdbMsgSeek(int32_t fd, int32_t offset, int32_t whence, uint32_t *err) {
    return tavdb::request(fd, {tavdb::MediaOperation::seek, whence, offset}, err);
}
