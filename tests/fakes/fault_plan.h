// SPDX-License-Identifier: Apache-2.0
// The one plan of what fails in a test. It is asked by every fake and every
// wrapped libc call before they work; it does nothing by itself. Two ways of
// planning: rules ("skip 2 reads of value.med, then fail one"), and "fail
// operation k of any kind" for k = 0, 1, 2, ... until a run passes untouched.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "fakes/operation.h"

namespace tavdb_test {

/// How an operation fails.
struct Fault {
    enum class Rule : uint8_t { result, shortBy, moreBy };

    Rule rule = Rule::result;
    int64_t amount = -1;
    int32_t error = 0;  ///< goes to errno and to a medium's error word; 0 leaves both alone

    /// The result of an operation that was asked for that many bytes (0 when it moves none).
    int64_t resultFor(int64_t asked) const;
    /// How many of the bytes asked for really move: never more than asked.
    int64_t movedOf(int64_t asked) const;
};

inline Fault returning(int64_t result, int32_t error = 0) {
    return {Fault::Rule::result, result, error};
}
/// A transfer that stops that many bytes before its end.
inline Fault shortBy(int64_t bytes, int32_t error = 0) {
    return {Fault::Rule::shortBy, bytes, error};
}
/// A transfer that claims to have moved more than was asked for.
inline Fault moreBy(int64_t bytes) {
    return {Fault::Rule::moreBy, bytes, 0};
}
/// How the operation fails when nothing else is said.
Fault standardFault(Operation operation);

/// How operations fail that are chosen by their number: the fault of an operation, or none for one that is not counted.
using FaultChoice = std::function<std::optional<Fault>(Operation operation)>;
/// Every operation as its row says, but reads and writes as told.
FaultChoice standardChoice(std::optional<Fault> transferFault);

/// Whether only the chosen operation fails, or all that follow it as well.
enum class Persistence : uint8_t { once, forEver };

inline constexpr uint32_t kForEver = std::numeric_limits<uint32_t>::max();

/// "Skip so many operations, then fail so many." Rules of one operation follow each other.
struct FaultRule {
    Operation operation{};
    std::string subject = {};  ///< hint, table, path or function; empty: any
    uint32_t skip = 0;
    uint32_t times = 1;               ///< kForEver: until the plan is cleared
    std::optional<Fault> fault = {};  ///< none: standardFault()
};

class FaultPlan {
public:
    void add(FaultRule rule);
    /// Fails the k-th operation from now on, whatever it is. @param transferFault for reads and writes
    void failOperation(uint64_t index, std::optional<Fault> transferFault = {});
    /// Fails the k-th operation for which there is a choice.
    void failOperation(uint64_t index, FaultChoice choice, Persistence persistence);
    /// Nothing fails or is counted until resume(); the plan stays.
    void pause();
    void resume();
    /// Nothing fails any more; the counts stay.
    void endFaults();
    /// Nothing fails any more, and nothing has been counted.
    void clear();

    /// Operations that failOperation() counts, since the plan was cleared or it was called.
    uint64_t operations() const;
    /// Whether a fault was handed out since the plan was cleared or failOperation() was called.
    bool fired() const;

    /// For the fakes: the fault of the operation that begins now, if it is to fail.
    std::optional<Fault> next(Operation operation, std::string_view subject);

private:
    std::optional<Fault> countedFault(Operation operation);
    std::optional<Fault> ruledFault(Operation operation, std::string_view subject);

    mutable std::mutex mutex_;
    std::deque<FaultRule> rules_;
    std::optional<uint64_t> failing_;
    FaultChoice choice_ = standardChoice({});
    Persistence persistence_ = Persistence::once;
    uint64_t operations_ = 0;
    bool fired_ = false;
    uint32_t pauses_ = 0;
};

/// The plan of this process.
FaultPlan &faultPlan();

/// No faults until the end of the scope, for what a run prepares or looks at.
class FaultPause {
public:
    FaultPause() {
        faultPlan().pause();
    }
    ~FaultPause() {
        faultPlan().resume();
    }
    FaultPause(const FaultPause &) = delete;
    FaultPause &operator=(const FaultPause &) = delete;
};

}  // namespace tavdb_test
