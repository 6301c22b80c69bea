// SPDX-License-Identifier: Apache-2.0
// tavdb serve-media: a database whose images only a server opens, used by the
// command as by any other process; servers that die, clients that are refused, and
// clients that talk nonsense.
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "mediafile/media_message.h"
#include "tools/verbs/verbs_fixture.h"

namespace tavdb_test {
namespace {

using testing::HasSubstr;

class ServeMedia : public VerbTest {
protected:
    void SetUp() override {
        build(kDevice, {"--media", "message"});
        serve();
    }
    void TearDown() override {
        if (server.process > 0)
            stop(SIGTERM);
    }
    void serve(std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"serve-media", "db"});
        server = start(options);
        for (int i = 0; i < 2000 && !isServing(); i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        ASSERT_TRUE(isServing());
    }
    /// The last socket is the last to come.
    bool isServing() const {
        const int client = connected("text.sock");
        if (client >= 0)
            close(client);
        return client >= 0;
    }
    CommandResult stop(int number) {
        kill(server.process, number);
        const auto result = finish(server);
        server = {};
        return result;
    }
    /// A connection that has had its greeting; -1 without one.
    int connected(const std::string &name) const {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, (place / "db/" + name).c_str(), sizeof address.sun_path - 1);
        const int client = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        tavdb::MediaReply greeting = {};
        if (connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
            recv(client, &greeting, sizeof greeting, 0) == sizeof greeting)
            return client;
        close(client);
        return -1;
    }

    Started server;
};

TEST_F(ServeMedia, TheDatabaseIsUsedAsAnyOther) {
    EXPECT_EQ(tavdb({"set", "/level", "3"}), says(""));
    EXPECT_EQ(tavdb({"get", "/level"}), says("3\n"));
    const auto whole = tavdb({"tree"});
    EXPECT_EQ(whole.exitCode, 0);
    EXPECT_THAT(whole.out, HasSubstr("level"));
    EXPECT_EQ(stop(SIGTERM).exitCode, 1000 + SIGTERM) << "a signal ends it as it ends any program";
    EXPECT_FALSE(std::filesystem::exists(place / "db/text.sock"));
}

TEST_F(ServeMedia, WritesReachTheImageThatOtherMediaRead) {
    ASSERT_EQ(tavdb({"set", "/level", "5"}), says(""));
    stop(SIGTERM);
    std::string lines;
    for (const std::string name : {"component", "value", "constraint", "string", "data", "text"})
        lines += "libtavdbfile.so tavdbMemOpen tavdbMemClose tavdbMemRead tavdbMemWrite tavdbMemSeek tavdbMemSync1 " +
                 name + ".med\n";
    std::filesystem::rename(place / "db", place / "plain");
    place.write("plain/media.conf", lines);
    EXPECT_EQ(tavdb({"get", "-d", "plain", "/level"}), says("5\n"));
}

TEST_F(ServeMedia, WithoutItsServerTheDatabaseSaysSo) {
    stop(SIGKILL);
    const auto result = tavdb({"get", "/level"});
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_THAT(result.err, HasSubstr("Connection refused"));
}

TEST_F(ServeMedia, AServerAfterAKilledOneTakesItsPlace) {
    stop(SIGKILL);
    serve();
    EXPECT_EQ(tavdb({"set", "/level", "4"}), says(""));
    EXPECT_EQ(tavdb({"get", "/level"}), says("4\n"));
}

TEST_F(ServeMedia, ASecondServerIsRefused) {
    const auto second = tavdb({"serve-media", "db"});
    EXPECT_EQ(second.exitCode, 5);
    EXPECT_THAT(second.err, HasSubstr("is served by another server"));
    EXPECT_EQ(tavdb({"get", "/level"}).exitCode, 0) << "the first one goes on";
}

TEST_F(ServeMedia, OtherKindsOfMediaAreNotServed) {
    std::filesystem::rename(place / "db", place / "message");
    build(kDevice);
    EXPECT_EQ(tavdb({"serve-media", "db"}),
              fails(2,
                    "tavdb: db: media.conf: the component medium is no message medium but memory; build with --media "
                    "message\n"));
    std::filesystem::remove_all(place / "db");
    std::filesystem::rename(place / "message", place / "db");
}

TEST_F(ServeMedia, UnknownUsersAndGroupsAreUsageErrors) {
    const auto result = tavdb({"serve-media", "db", "--allow-user", "no-such-user", "--allow-group", "no-such-group"});
    EXPECT_EQ(result, fails(2,
                            "tavdb: no-such-user: there is no such user\n"
                            "tavdb: no-such-group: there is no such group\n"));
}

TEST_F(ServeMedia, AReadOnlyServerRefusesWrites) {
    stop(SIGTERM);
    serve({"--read-only"});
    const auto before = tavdb({"get", "/level"});
    EXPECT_EQ(before.exitCode, 0);
    const auto result = tavdb({"set", "/level", "5"});
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_THAT(result.err, HasSubstr("Read-only file system"));
    EXPECT_EQ(tavdb({"get", "/level"}), before);
}

TEST_F(ServeMedia, ManyClientsAtOnceAreAllServed) {
    std::vector<Started> clients;
    for (int i = 0; i < 24; i++)
        clients.push_back(start({"set", "/level", std::to_string(i % 5 + 1)}));
    for (const auto &client : clients)
        EXPECT_EQ(finish(client).exitCode, 0);
    EXPECT_EQ(tavdb({"get", "/level"}).exitCode, 0);
}

TEST_F(ServeMedia, AnotherUserIsRefusedUnlessAllowed) {
    std::filesystem::permissions(place.path(), std::filesystem::perms(0755));
    for (const char *name : {"db/session.tbl", "db/lock.tbl"})
        std::filesystem::permissions(place / name, std::filesystem::perms(0666));
    std::filesystem::permissions(place / "db", std::filesystem::perms(0777));
    std::filesystem::permissions(place.path(), std::filesystem::perms(0777));
    stop(SIGTERM);
    serve({"--allow-user", "daemon"});
    const auto refused = tavdb({"get", "/level"}, {.input = {}, .asNobody = true});
    if (refused.exitCode == 127 || refused.exitCode == 126)
        GTEST_SKIP() << "the command cannot be run by another user here";
    EXPECT_THAT(refused.err, HasSubstr("Permission denied"));
    EXPECT_NE(refused.exitCode, 0);
    stop(SIGTERM);
    serve({"--allow-user", "nobody"});
    EXPECT_EQ(tavdb({"get", "/level"}, {.input = {}, .asNobody = true}).exitCode, 0);
}

/// Requests that no client sends.
struct Nonsense {
    const char *name;
    tavdb::MediaRequest request;
    size_t bytes;
};

class ServeNonsense : public ServeMedia, public testing::WithParamInterface<Nonsense> {};

TEST_P(ServeNonsense, EndsTheConnectionAndNothingElse) {
    const auto image = bytesOf(place / "db/value.med");
    const int client = connected("value.sock");
    ASSERT_GE(client, 0);
    std::string message(sizeof(tavdb::MediaRequest) + 100000, 'x');
    std::memcpy(message.data(), &GetParam().request, sizeof(tavdb::MediaRequest));
    ASSERT_EQ(send(client, message.data(), GetParam().bytes, MSG_NOSIGNAL), static_cast<ssize_t>(GetParam().bytes));
    tavdb::MediaReply reply = {};
    ASSERT_EQ(recv(client, &reply, sizeof reply, 0), static_cast<ssize_t>(sizeof reply));
    EXPECT_EQ(reply.result, -1);
    EXPECT_EQ(reply.error, static_cast<uint32_t>(EPROTO));
    EXPECT_EQ(recv(client, &reply, sizeof reply, 0), 0) << "the connection is still there";
    close(client);
    EXPECT_EQ(bytesOf(place / "db/value.med"), image);
    EXPECT_EQ(tavdb({"get", "/level"}).exitCode, 0);
}

using tavdb::MediaOperation;
constexpr size_t kHead = sizeof(tavdb::MediaRequest);
INSTANTIATE_TEST_SUITE_P(
    Requests, ServeNonsense,
    testing::Values(Nonsense{"Short", {MediaOperation::open, 0, 0}, 3},
                    Nonsense{"NoOperation", {MediaOperation{}, 0, 0}, kHead},
                    Nonsense{"UnknownOperation", {MediaOperation{6}, 0, 0}, kHead},
                    Nonsense{"NegativeRead", {MediaOperation::read, -1, 0}, kHead},
                    Nonsense{"HugeRead", {MediaOperation::read, tavdb::kMessageDataMax + 1, 0}, kHead},
                    Nonsense{"NegativeOffset", {MediaOperation::read, 4, -1}, kHead},
                    Nonsense{"WriteOfMoreThanCame", {MediaOperation::write, 8, 16}, kHead + 4},
                    Nonsense{"WriteOfLessThanCame", {MediaOperation::write, 2, 16}, kHead + 4},
                    Nonsense{"ReadWithBytes", {MediaOperation::read, 4, 0}, kHead + 4},
                    Nonsense{"TooLong", {MediaOperation::write, 4, 0}, kHead + tavdb::kMessageDataMax + 1}),
    [](const auto &nonsense) { return nonsense.param.name; });

}  // namespace
}  // namespace tavdb_test
