// SPDX-License-Identifier: Apache-2.0
// What the library did, in order: every operation of the fakes, and the libc
// calls made while a Recording is active. As typed events, and as short texts
// for comparing an exact order of steps: "open value.med", "read 28@120",
// "close". A failed or short operation shows what came of it: "read 28@120 -> 27".
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "fakes/operation.h"

namespace tavdb_test {

/// One operation. Fields that an operation does not have stay at their defaults.
struct Event {
    Operation operation{};
    std::string subject = {};        ///< hint of a medium, name of a table, path, function
    std::string details = {};        ///< the rest of the text, for example "28@120"
    const char *function = nullptr;  ///< the media function that was called
    int32_t fd = -1;
    int64_t length = 0;              ///< bytes asked for
    uint64_t offset = 0;             ///< where on the medium, or a key
    int64_t argument = 0;            ///< flags, whence, id, level, timeout
    std::vector<uint8_t> data = {};  ///< what a medium write stored
    int64_t result = 0;
    int32_t error = 0;    ///< error number of a failure
    bool failed = false;  ///< the text then shows result and error
};

/// The event as one line without a line end.
std::string textOf(const Event &event);

/// @name Details of an event
/// @{
/// "28@120"
std::string transferText(int64_t length, uint64_t offset);
/// "0 end"
std::string seekText(int64_t offset, int whence);
/// @}

class EventLog {
public:
    void add(Event event);
    void clear();

    std::vector<Event> events(Category categories = Category::all) const;
    std::vector<std::string> lines(Category categories = Category::all) const;
    /// The lines; the whole log is then cleared.
    std::vector<std::string> take(Category categories = Category::all);
    size_t count(Operation operation) const;
    /// All lines, each with a line end, to be shown with a failure.
    std::string text(Category categories = Category::all) const;

private:
    mutable std::mutex mutex_;
    std::vector<Event> events_;
};

/// The log of this process.
EventLog &eventLog();

}  // namespace tavdb_test
