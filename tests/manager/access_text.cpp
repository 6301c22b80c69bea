// SPDX-License-Identifier: Apache-2.0
#include "manager/access_text.h"

#include <vector>

#include "fakes/event_log.h"

namespace tavdb_test {

namespace {

struct Transfers {
    size_t count = 0;
    int64_t bytes = 0;

    void add(int64_t length) {
        ++count;
        bytes += length;
    }
    std::string text(const char *word) const {
        return count == 0 ? "" : std::string(word) + std::to_string(count) + '/' + std::to_string(bytes);
    }
};

struct Accesses {
    std::string hint;
    size_t opens = 0;
    size_t closes = 0;
    size_t seeks = 0;
    size_t syncs = 0;
    Transfers reads;
    Transfers writes;
};

Accesses &accessesOf(std::vector<Accesses> &all, const std::string &hint) {
    for (Accesses &one : all) {
        if (one.hint == hint)
            return one;
    }
    all.push_back({.hint = hint, .reads = {}, .writes = {}});
    return all.back();
}

void add(Accesses &accesses, const Event &event) {
    switch (event.operation) {
        case Operation::mediaOpen:
            ++accesses.opens;
            break;
        case Operation::mediaClose:
            ++accesses.closes;
            break;
        case Operation::mediaRead:
            accesses.reads.add(event.length);
            break;
        case Operation::mediaWrite:
            accesses.writes.add(event.length);
            break;
        case Operation::mediaSeek:
            ++accesses.seeks;
            break;
        case Operation::mediaSync:
            ++accesses.syncs;
            break;
        default:
            break;
    }
}

std::string counted(const char *word, size_t count) {
    return count == 0 ? "" : word + std::to_string(count);
}

std::string textOf(const Accesses &a) {
    return a.hint.substr(0, a.hint.find('.')) + ' ' + std::to_string(a.opens) + a.reads.text(" read ") +
           a.writes.text(" written ") + counted(" seek ", a.seeks) + counted(" sync ", a.syncs) +
           (a.closes == a.opens ? "" : " closed " + std::to_string(a.closes));
}

}  // namespace

std::string accessText() {
    std::vector<Accesses> all;
    for (const Event &event : eventLog().events(Category::media)) {
        if (event.operation != Operation::mediaInit && event.operation != Operation::mediaDump)
            add(accessesOf(all, event.subject), event);
    }
    std::string text;
    for (const Accesses &one : all)
        text += (text.empty() ? "" : "; ") + textOf(one);
    return text;
}

}  // namespace tavdb_test
