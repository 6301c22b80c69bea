// SPDX-License-Identifier: Apache-2.0
#include "fakes/fault_plan.h"

#include <algorithm>

namespace tavdb_test {

int64_t Fault::resultFor(int64_t asked) const {
    if (rule == Rule::shortBy)
        return std::max<int64_t>(asked - amount, 0);
    return rule == Rule::moreBy ? asked + amount : amount;
}

int64_t Fault::movedOf(int64_t asked) const {
    return std::clamp<int64_t>(resultFor(asked), 0, std::max<int64_t>(asked, 0));
}

Fault standardFault(Operation operation) {
    const OperationTraits &traits = traitsOf(operation);
    return returning(traits.failureResult, traits.failureError);
}

FaultChoice standardChoice(std::optional<Fault> transferFault) {
    return [transferFault](Operation operation) -> std::optional<Fault> {
        return transferFault && isTransfer(operation) ? *transferFault : standardFault(operation);
    };
}

void FaultPlan::add(FaultRule rule) {
    const std::lock_guard guard(mutex_);
    if (rule.times != 0)
        rules_.push_back(std::move(rule));
}

void FaultPlan::failOperation(uint64_t index, std::optional<Fault> transferFault) {
    failOperation(index, standardChoice(transferFault), Persistence::once);
}

void FaultPlan::failOperation(uint64_t index, FaultChoice choice, Persistence persistence) {
    const std::lock_guard guard(mutex_);
    failing_ = index;
    choice_ = std::move(choice);
    persistence_ = persistence;
    operations_ = 0;
    fired_ = false;
}

void FaultPlan::pause() {
    const std::lock_guard guard(mutex_);
    ++pauses_;
}

void FaultPlan::resume() {
    const std::lock_guard guard(mutex_);
    --pauses_;
}

void FaultPlan::endFaults() {
    const std::lock_guard guard(mutex_);
    rules_.clear();
    failing_.reset();
    choice_ = standardChoice({});
}

void FaultPlan::clear() {
    endFaults();
    const std::lock_guard guard(mutex_);
    operations_ = 0;
    fired_ = false;
}

uint64_t FaultPlan::operations() const {
    const std::lock_guard guard(mutex_);
    return operations_;
}

bool FaultPlan::fired() const {
    const std::lock_guard guard(mutex_);
    return fired_;
}

std::optional<Fault> FaultPlan::next(Operation operation, std::string_view subject) {
    const std::lock_guard guard(mutex_);
    if (pauses_ != 0)
        return std::nullopt;
    std::optional<Fault> fault = countedFault(operation);
    if (!fault)
        fault = ruledFault(operation, subject);
    fired_ = fired_ || fault.has_value();
    return fault;
}

std::optional<Fault> FaultPlan::countedFault(Operation operation) {
    if (traitsOf(operation).any == Any::left)
        return std::nullopt;
    const std::optional<Fault> fault = choice_(operation);
    if (!fault)
        return std::nullopt;
    const uint64_t index = operations_++;
    const bool fails = failing_ && (index == *failing_ || (persistence_ == Persistence::forEver && index > *failing_));
    return fails ? fault : std::nullopt;
}

// Only the first rule that fits counts the operation, so that rules follow each other.
std::optional<Fault> FaultPlan::ruledFault(Operation operation, std::string_view subject) {
    if (rules_.empty())
        return std::nullopt;
    const auto rule = std::find_if(rules_.begin(), rules_.end(), [&](const FaultRule &candidate) {
        return candidate.operation == operation && (candidate.subject.empty() || candidate.subject == subject);
    });
    if (rule == rules_.end())
        return std::nullopt;
    if (rule->skip > 0) {
        --rule->skip;
        return std::nullopt;
    }
    const Fault fault = rule->fault.value_or(standardFault(operation));
    if (rule->times != kForEver && --rule->times == 0)
        rules_.erase(rule);
    return fault;
}

FaultPlan &faultPlan() {
    static auto *const plan = new FaultPlan;
    return *plan;
}

}  // namespace tavdb_test
