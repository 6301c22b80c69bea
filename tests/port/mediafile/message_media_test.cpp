// SPDX-License-Identifier: Apache-2.0
// Message media against servers of the test's own: good ones, ones that refuse, die
// or talk nonsense, and none at all.
#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "media_test_support.h"
#include "mediafile/media_message.h"

namespace {

using tavdb::MediaOperation;
using tavdb::MediaReply;
using tavdb::MediaRequest;

/// What a server answers; nothing ends the connection.
using Answer = std::function<std::string(const MediaRequest &, const std::string &data)>;

std::string reply(int32_t result, int error = 0, const std::string &data = {}) {
    const MediaReply head = {result, static_cast<uint32_t>(error)};
    return std::string(reinterpret_cast<const char *>(&head), sizeof head) + data;
}

/// Listens at a path and serves clients one after the other, on a thread.
class TestServer {
public:
    TestServer(const std::string &path, std::string greeting, Answer answer)
        : greeting_(std::move(greeting)), answer_(std::move(answer)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        unlink(path.c_str());
        listener_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener_, 8), 0);
        thread_ = std::thread([this] { run(); });
    }
    ~TestServer() {
        ending_ = true;
        thread_.join();
        close(listener_);
    }
    int connections() const {
        return connections_;
    }

private:
    bool comes(int fd) const {
        pollfd waiting = {fd, POLLIN, 0};
        while (!ending_)
            if (poll(&waiting, 1, 5) > 0)
                return true;
        return false;
    }
    void run() {
        std::vector<std::thread> clients;
        while (comes(listener_)) {
            const int client = accept(listener_, nullptr, nullptr);
            connections_++;
            clients.emplace_back([this, client] { serve(client); });
        }
        for (std::thread &client : clients)
            client.join();
    }
    void serve(int client) const {
        std::vector<char> message(sizeof(MediaRequest) + tavdb::kMessageDataMax);
        bool goesOn = send(client, greeting_.data(), greeting_.size(), MSG_NOSIGNAL) >= 0;
        while (goesOn && comes(client)) {
            const ssize_t size = recv(client, message.data(), message.size(), 0);
            if (size < static_cast<ssize_t>(sizeof(MediaRequest)))
                break;
            MediaRequest request;
            std::memcpy(&request, message.data(), sizeof request);
            const std::string text =
                answer_(request, {message.data() + sizeof request, static_cast<size_t>(size) - sizeof request});
            goesOn = !text.empty() && send(client, text.data(), text.size(), MSG_NOSIGNAL) >= 0;
        }
        close(client);
    }

    std::string greeting_;
    Answer answer_;
    int listener_ = -1;
    std::atomic<bool> ending_ = false;
    std::atomic<int> connections_ = 0;
    std::thread thread_;
};

class MessageMedia : public MediaTest {
protected:
    std::string image = "0123456789";

    /// What a good server does with the image.
    std::string perform(const MediaRequest &request, const std::string &data) {
        const auto offset = static_cast<size_t>(request.offset);
        switch (request.operation) {
            case MediaOperation::read: {
                const auto bytes =
                    offset < image.size() ? image.substr(offset, static_cast<size_t>(request.length)) : "";
                return reply(static_cast<int32_t>(bytes.size()), 0, bytes);
            }
            case MediaOperation::write:
                image.resize(std::max(image.size(), offset + data.size()));
                image.replace(offset, data.size(), data);
                return reply(static_cast<int32_t>(data.size()));
            case MediaOperation::seek:
                return reply(static_cast<int32_t>(image.size()));
            default:
                return reply(0);
        }
    }
    Answer good() {
        return [this](const MediaRequest &request, const std::string &data) { return perform(request, data); };
    }
    /// A server at "a.sock" that opens, and answers everything else as given.
    Answer onceOpen(const std::string &text) {
        return [text](const MediaRequest &request, const std::string &) {
            return request.operation == MediaOperation::open ? reply(0) : text;
        };
    }
    std::string socketPath() const {
        return pathOf("a.sock");
    }
    const std::string welcome = reply(tavdb::kMediaProtocol);
};

TEST_F(MessageMedia, ReadsWritesSeeksAndSyncsAtTheServer) {
    const TestServer server(socketPath(), welcome, good());
    const Outcome opened = openMedium(messageMedium, "a.sock");
    ASSERT_EQ(opened, success(0));
    EXPECT_EQ(bytesOf(messageMedium, 0, 4, 3), "3456");
    EXPECT_EQ(bytesOf(messageMedium, 0, 9, 8), "89") << "fewer at the end";
    EXPECT_EQ(writeMedium(messageMedium, 0, "xy", 1), success(2));
    EXPECT_EQ(image, "0xy3456789");
    EXPECT_EQ(seekMedium(messageMedium, 0, 0, SEEK_END), success(10));
    uint32_t err = kNoError;
    EXPECT_EQ(tavdbMsgSync(0, &err, 0), 0);
    EXPECT_EQ(closeMedium(messageMedium, 0), success(0));
}

TEST_F(MessageMedia, KeepsOneConnectionForAllAccesses) {
    const TestServer server(socketPath(), welcome, good());
    for (int i = 0; i < 5; i++) {
        ASSERT_EQ(openMedium(messageMedium, "a.sock"), success(0));
        EXPECT_EQ(bytesOf(messageMedium, 0, 4, 0), "0123");
        EXPECT_EQ(closeMedium(messageMedium, 0), success(0));
    }
    EXPECT_EQ(server.connections(), 1);
}

TEST_F(MessageMedia, LongTransfersTakeSeveralMessages) {
    const TestServer server(socketPath(), welcome, good());
    ASSERT_EQ(openMedium(messageMedium, "a.sock"), success(0));
    std::string longText(3 * static_cast<size_t>(tavdb::kMessageDataMax) + 17, '?');
    for (size_t i = 0; i < longText.size(); i++)
        longText[i] = static_cast<char>('a' + i % 23);
    const auto length = static_cast<int32_t>(longText.size());
    EXPECT_EQ(writeMedium(messageMedium, 0, longText, 5), success(length));
    EXPECT_EQ(image, "01234" + longText);
    EXPECT_EQ(bytesOf(messageMedium, 0, length, 5), longText);
}

TEST_F(MessageMedia, ErrorNumbersOfTheServerArriveAndTheConnectionStays) {
    const TestServer server(socketPath(), welcome, onceOpen(reply(-1, ENOSPC)));
    ASSERT_EQ(openMedium(messageMedium, "a.sock"), success(0));
    std::string bytes;
    EXPECT_EQ(writeMedium(messageMedium, 0, "x", 0), failure(ENOSPC));
    EXPECT_EQ(readMedium(messageMedium, 0, 1, 0, &bytes), failure(ENOSPC));
    EXPECT_EQ(seekMedium(messageMedium, 0, 0, SEEK_END), failure(ENOSPC));
    EXPECT_EQ(server.connections(), 1);
}

TEST_F(MessageMedia, WithoutAServerOpenSaysWhy) {
    EXPECT_EQ(openMedium(messageMedium, "a.sock"), failure(ENOENT));
    { const TestServer server(socketPath(), welcome, good()); }
    EXPECT_EQ(openMedium(messageMedium, "a.sock"), failure(ECONNREFUSED));
    EXPECT_EQ(openMedium(messageMedium, std::string(200, 'a')), failure(ENAMETOOLONG));
    EXPECT_EQ(tavdbMsgOpen(nullptr, 0, nullptr), -1);
}

TEST_F(MessageMedia, ARefusalIsTheServersErrorNumber) {
    const TestServer server(socketPath(), reply(-1, EACCES), good());
    EXPECT_EQ(openMedium(messageMedium, "a.sock"), failure(EACCES));
    EXPECT_EQ(openMedium(messageMedium, "a.sock"), failure(EACCES));
    EXPECT_EQ(server.connections(), 2);
}

TEST_F(MessageMedia, AnotherProtocolIsRefused) {
    const TestServer server(socketPath(), reply(tavdb::kMediaProtocol + 1), good());
    EXPECT_EQ(openMedium(messageMedium, "a.sock"), failure(EPROTO));
}

TEST_F(MessageMedia, AServerStartedAnewIsFoundByTheNextOpen) {
    {
        const TestServer server(socketPath(), welcome, good());
        ASSERT_EQ(openMedium(messageMedium, "a.sock"), success(0));
    }
    const TestServer server(socketPath(), welcome, good());
    EXPECT_EQ(openMedium(messageMedium, "a.sock"), success(0));
    EXPECT_EQ(bytesOf(messageMedium, 0, 2, 0), "01");
}

TEST_F(MessageMedia, AServerThatDiesCostsOneError) {
    bool dies = true;
    const TestServer server(socketPath(), welcome, [&](const MediaRequest &request, const std::string &data) {
        const bool now = dies && request.operation == MediaOperation::read;
        dies = dies && !now;
        return now ? std::string() : perform(request, data);
    });
    ASSERT_EQ(openMedium(messageMedium, "a.sock"), success(0));
    std::string bytes;
    EXPECT_EQ(readMedium(messageMedium, 0, 2, 0, &bytes), failure(ECONNRESET));
    EXPECT_EQ(readMedium(messageMedium, 0, 2, 0, &bytes), success(2));
    EXPECT_EQ(bytes.substr(0, 2), "01");
    EXPECT_EQ(server.connections(), 2);
}

/// Replies to a read of four bytes that no server of this kind sends.
class MessageNonsense : public MessageMedia, public testing::WithParamInterface<std::string> {};

TEST_P(MessageNonsense, IsAFailedReadAndEndsTheConnection) {
    const TestServer server(socketPath(), welcome, onceOpen(GetParam()));
    ASSERT_EQ(openMedium(messageMedium, "a.sock"), success(0));
    std::string bytes;
    EXPECT_EQ(readMedium(messageMedium, 0, 4, 0, &bytes), failure(EPROTO));
    EXPECT_EQ(openMedium(messageMedium, "a.sock"), success(0));
    EXPECT_EQ(server.connections(), 2);
}

INSTANTIATE_TEST_SUITE_P(Replies, MessageNonsense,
                         testing::Values("abc", reply(4), reply(4, 0, "abc"), reply(3, 0, "abcd"), reply(5, 0, "abcde"),
                                         reply(5, 0, "abcd")));

TEST_F(MessageMedia, DescriptorsThatNoneOpenedAreBad) {
    std::string bytes;
    uint32_t err = kNoError;
    for (const int32_t fd : {-1, 0, 128, INT32_MIN}) {
        EXPECT_EQ(closeMedium(messageMedium, fd), failure(EBADF));
        EXPECT_EQ(readMedium(messageMedium, fd, 4, 0, &bytes), failure(EBADF));
        EXPECT_EQ(writeMedium(messageMedium, fd, "x", 0), failure(EBADF));
        EXPECT_EQ(seekMedium(messageMedium, fd, 0, SEEK_END), failure(EBADF));
        EXPECT_EQ(tavdbMsgSync(fd, &err, 0), -1);
        EXPECT_EQ(err, static_cast<uint32_t>(EBADF));
    }
}

TEST_F(MessageMedia, ImpossibleTransfersDoNotReachTheServer) {
    const TestServer server(socketPath(), welcome, onceOpen(reply(-1, EIO)));
    ASSERT_EQ(openMedium(messageMedium, "a.sock"), success(0));
    uint32_t err = kNoError;
    EXPECT_EQ(tavdbMsgRead(0, nullptr, 4, 0, &err), -1);
    EXPECT_EQ(err, static_cast<uint32_t>(EFAULT));
    EXPECT_EQ(tavdbMsgWrite(0, "abc", -1, 0, &err), -1);
    EXPECT_EQ(err, static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(writeMedium(messageMedium, 0, "", 0), success(0));
}

TEST_F(MessageMedia, AForkedChildHasAConnectionOfItsOwn) {
    const TestServer server(socketPath(), welcome, good());
    ASSERT_EQ(openMedium(messageMedium, "a.sock"), success(0));
    const pid_t child = fork();
    if (child == 0) {
        char bytes[2];
        _exit(tavdbMsgRead(0, bytes, 2, 4, nullptr) == 2 && memcmp(bytes, "45", 2) == 0 ? 0 : 1);
    }
    EXPECT_EQ(bytesOf(messageMedium, 0, 2, 0), "01");
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(server.connections(), 2);
}

TEST_F(MessageMedia, ThreadsDoNotGetEachOthersReplies) {
    const TestServer server(socketPath(), welcome, good());
    ASSERT_EQ(openMedium(messageMedium, "a.sock"), success(0));
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < 4; i++)
        threads.emplace_back([&, i] {
            for (int round = 0; round < 200; round++) {
                char bytes[2] = {};
                wrong += tavdbMsgRead(0, bytes, 2, 2 * i, nullptr) != 2 || bytes[0] != static_cast<char>('0' + 2 * i);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST_F(MessageMedia, TheNextStartEndsConnectionsAndFreesTheirHints) {
    const TestServer server(socketPath(), welcome, good());
    const int32_t blocks = liveBlocks();
    const int descriptors = openDescriptors();
    ASSERT_EQ(openMedium(messageMedium, "a.sock"), success(0));
    EXPECT_EQ(liveBlocks(), blocks + 1);
    initialise();
    EXPECT_EQ(liveBlocks(), blocks);
    EXPECT_LE(openDescriptors(), descriptors + 1) << "the server's end may still be there";
    EXPECT_EQ(closeMedium(messageMedium, 0), failure(EBADF));
}

TEST_F(MessageMedia, AHintWithoutMemoryIsNoMedium) {
    failAllocationAfter(0);
    EXPECT_EQ(openMedium(messageMedium, "a.sock"), failure(ENOMEM));
    EXPECT_EQ(openMedium(messageMedium, "a.sock"), failure(ENOENT));
}

}  // namespace
