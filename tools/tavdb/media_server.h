// SPDX-License-Identifier: Apache-2.0
// The server side of message media: owns images and does what clients ask for over
// Unix sockets, one socket for an image. One thread serves everybody, so requests
// never cross each other. What a database is, is not known here.
#pragma once

#include <sys/types.h>

#include <map>
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
    explicit MediaServer(AllowedPeers allowed, bool readOnly);
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
    /// @return whether what comes in at a socket is seen from now on, until it is closed
    bool watch(int socket) const;
    void accept(const Image &image);
    /// @return an error number for a peer that may not come in, or 0
    int refusalOf(int socket) const;
    bool serve(const Client &client);
    void serveReady(const std::vector<int> &sockets);

    AllowedPeers allowed_;
    bool readOnly_;
    image::Descriptor watched_;  ///< epoll of all listeners and clients
    std::vector<Image> images_;
    std::map<int, Client> clients_;  ///< by their sockets
};

}  // namespace tavdb::command
