// SPDX-License-Identifier: Apache-2.0
// The signals that end a program, put off until what must be put in order is:
// a folder that is half built, a session and a reference in the shared tables.
#pragma once

#include <array>
#include <csignal>

namespace tavdb::command {

/// Whether such a signal came since it was put off: time to stop.
bool isEnding();

/// While this lives, SIGHUP, SIGINT and SIGTERM only ask the program to stop. What
/// came meanwhile ends it afterwards, as it would have without this.
class EndingSignals {
public:
    /// What a second signal does: wait too, or end the program at once. The latter is
    /// for work that others may hold up, such as hooks.
    enum class Second { waits, ends };

    explicit EndingSignals(Second second);
    EndingSignals(const EndingSignals &) = delete;
    EndingSignals &operator=(const EndingSignals &) = delete;
    ~EndingSignals();

private:
    static constexpr std::array kNumbers = {SIGHUP, SIGINT, SIGTERM};
    std::array<struct sigaction, kNumbers.size()> before = {};
};

}  // namespace tavdb::command
