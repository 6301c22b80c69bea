// SPDX-License-Identifier: Apache-2.0
// The bare steps of the three kinds of media.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstring>

#include "floor.h"
#include "scratch.h"

namespace tavdb_benchmark {

namespace {

/// Mapped images: a descriptor is the place in a table of addresses.
char *s_images[4];

class MemoryFloor : public Floor {
public:
    explicit MemoryFloor(const Directory &directory) {
        for (size_t i = 0; i < kImages.size(); i++) {
            map(i, directory.path() + '/' + kImages[i]);
            media_[i] = {std::string(1, static_cast<char>('0' + i)),
                         [](const char *hint) { return static_cast<int32_t>(hint[0] - '0'); },
                         [](int32_t fd, void *buffer, int32_t length, uint32_t offset) {
                             memcpy(buffer, s_images[fd] + offset, static_cast<size_t>(length));
                             return length;
                         },
                         [](int32_t fd, const void *data, int32_t length, uint32_t offset) {
                             memcpy(s_images[fd] + offset, data, static_cast<size_t>(length));
                             return length;
                         },
                         [](int32_t) { return int32_t{0}; }};
        }
    }
    ~MemoryFloor() override {
        for (size_t i = 0; i < kImages.size(); i++)
            munmap(s_images[i], sizes_[i]);
    }

private:
    void map(size_t i, const std::string &path) {
        const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        struct stat status = {};
        fstat(fd, &status);
        sizes_[i] = static_cast<size_t>(status.st_size);
        // its pages at hand, as those of media that are open for long
        void *const image = mmap(nullptr, sizes_[i], PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, fd, 0);
        close(fd);
        if (image == MAP_FAILED)
            giveUp("cannot map " + path);
        s_images[i] = static_cast<char *>(image);
    }

    std::array<size_t, kImages.size()> sizes_ = {};
};

class FileFloor : public Floor {
public:
    explicit FileFloor(const Directory &directory) {
        for (size_t i = 0; i < kImages.size(); i++)
            media_[i] = {directory.path() + '/' + kImages[i],
                         [](const char *path) { return static_cast<int32_t>(open(path, O_RDWR | O_CLOEXEC)); },
                         [](int32_t fd, void *buffer, int32_t length, uint32_t offset) {
                             return static_cast<int32_t>(pread(fd, buffer, static_cast<size_t>(length), offset));
                         },
                         [](int32_t fd, const void *data, int32_t length, uint32_t offset) {
                             return static_cast<int32_t>(pwrite(fd, data, static_cast<size_t>(length), offset));
                         },
                         [](int32_t fd) { return static_cast<int32_t>(close(fd)); }};
    }
};

/// The head of a request; a reply has 8 bytes and what was asked for.
struct Request {
    int32_t bytesBack;
    int32_t unused[3];
};
struct Reply {
    int32_t words[2];
};

void exchange(int32_t socket, const Request &request, const void *data, int32_t dataBytes, void *buffer) {
    Reply reply;
    iovec out[] = {{const_cast<Request *>(&request), sizeof request},
                   {const_cast<void *>(data), static_cast<size_t>(dataBytes)}};
    iovec in[] = {{&reply, sizeof reply}, {buffer, static_cast<size_t>(request.bytesBack)}};
    msghdr message = {};
    message.msg_iov = out;
    message.msg_iovlen = 2;
    sendmsg(socket, &message, MSG_NOSIGNAL);
    message.msg_iov = in;
    recvmsg(socket, &message, 0);
}

/// Answers until the other end is closed.
[[noreturn]] void answer(int socket) {
    struct {
        Request request;
        char data[65536];
    } received;
    while (recv(socket, &received, sizeof received, 0) > 0)
        send(socket, &received, sizeof(Reply) + static_cast<size_t>(received.request.bytesBack), MSG_NOSIGNAL);
    _exit(0);
}

int32_t s_socket;

class MessageFloor : public Floor {
public:
    explicit MessageFloor(const Directory &) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
            giveUp("there are no sockets");
        server_ = fork();
        if (server_ == 0) {
            close(ends[0]);
            answer(ends[1]);
        }
        close(ends[1]);
        s_socket = ends[0];
        media_.fill({"",
                     [](const char *) {
                         exchange(s_socket, {0, {}}, nullptr, 0, nullptr);
                         return s_socket;
                     },
                     [](int32_t fd, void *buffer, int32_t length, uint32_t) {
                         exchange(fd, {length, {}}, nullptr, 0, buffer);
                         return length;
                     },
                     [](int32_t fd, const void *data, int32_t length, uint32_t) {
                         exchange(fd, {0, {}}, data, length, nullptr);
                         return length;
                     },
                     [](int32_t) { return int32_t{0}; }});
    }
    ~MessageFloor() override {
        close(s_socket);
        end(server_);
    }

private:
    pid_t server_ = -1;
};

}  // namespace

std::unique_ptr<Floor> memoryFloor(const Directory &directory) {
    return std::make_unique<MemoryFloor>(directory);
}

std::unique_ptr<Floor> fileFloor(const Directory &directory) {
    return std::make_unique<FileFloor>(directory);
}

std::unique_ptr<Floor> messageFloor(const Directory &directory) {
    return std::make_unique<MessageFloor>(directory);
}

}  // namespace tavdb_benchmark
