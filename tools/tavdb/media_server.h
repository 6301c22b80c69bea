// SPDX-License-Identifier: Apache-2.0
// The server side of message media: owns images and does what clients ask for over
// Unix sockets, one socket for an image. One thread serves everybody, so requests
// never cross each other. What a database is, is not known here.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "image/fault.h"
#include "image/files.h"

namespace tavdb::command {

/// Who may use the server, besides root and the server's own user.
struct AllowedPeers {
    std::vector<uid_t> users;
    std::vector<gid_t> groups;

    bool isEmpty() const {
        return users.empty() && groups.empty();
    }
};

class MediaServer {
public:
    explicit MediaServer(AllowedPeers allowed, bool readOnly) : allowed_(std::move(allowed)), readOnly_(readOnly) {}
    MediaServer(const MediaServer &) = delete;
    MediaServer &operator=(const MediaServer &) = delete;
    /// Removes the sockets.
    ~MediaServer();

    /// Takes an image, which no other server must have, and makes its socket. An old
    /// socket of that name is replaced.
    image::Status add(const std::string &imagePath, const std::string &socketPath);

    /// Serves until the function says that it is time to end.
    image::Status run(bool (*isEnding)());

private:
    struct Image {
        image::Descriptor file;
        image::Descriptor listener;
        std::string socketPath;
    };
    struct Client {
        image::Descriptor socket;
        int image;
    };

    image::Status listenAt(const std::string &path, Image &image) const;
    void accept(const Image &image);
    /// @return an error number for a peer that may not come in, or 0
    int refusalOf(int socket) const;
    bool serve(const Client &client);
    image::Status waitForWork(std::vector<size_t> &ready);

    AllowedPeers allowed_;
    bool readOnly_;
    std::vector<Image> images_;
    std::vector<Client> clients_;
};

}  // namespace tavdb::command
