// SPDX-License-Identifier: Apache-2.0
#include "fakes/event_log.h"

#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace tavdb_test {

namespace {

void append(std::string &text, const std::string &word) {
    if (word.empty())
        return;
    if (!text.empty())
        text += ' ';
    text += word;
}

std::string nameOfError(int32_t error) {
    if (error == 0)
        return "";
    const char *const name = strerrorname_np(error);
    return name != nullptr ? name : std::to_string(error);
}

}  // namespace

std::string textOf(const Event &event) {
    const OperationTraits &traits = traitsOf(event.operation);
    std::string text = traits.text;
    if (traits.subject == Subject::shown)
        append(text, event.subject);
    append(text, event.details);
    if (event.failed) {
        append(text, "-> " + std::to_string(event.result));
        append(text, nameOfError(event.error));
    }
    return text;
}

std::string transferText(int64_t length, uint64_t offset) {
    return std::to_string(length) + '@' + std::to_string(offset);
}

std::string seekText(int64_t offset, int whence) {
    const std::string from = std::to_string(offset) + ' ';
    if (whence == SEEK_SET)
        return from + "set";
    if (whence == SEEK_CUR)
        return from + "cur";
    return from + (whence == SEEK_END ? "end" : "whence " + std::to_string(whence));
}

void EventLog::add(Event event) {
    const std::lock_guard guard(mutex_);
    events_.push_back(std::move(event));
}

void EventLog::clear() {
    const std::lock_guard guard(mutex_);
    events_.clear();
}

std::vector<Event> EventLog::events(Category categories) const {
    const std::lock_guard guard(mutex_);
    std::vector<Event> chosen;
    std::copy_if(events_.begin(), events_.end(), std::back_inserter(chosen),
                 [&](const Event &event) { return includes(categories, traitsOf(event.operation).category); });
    return chosen;
}

std::vector<std::string> EventLog::lines(Category categories) const {
    std::vector<std::string> texts;
    for (const Event &event : events(categories))
        texts.push_back(textOf(event));
    return texts;
}

std::vector<std::string> EventLog::take(Category categories) {
    std::vector<std::string> texts = lines(categories);
    clear();
    return texts;
}

size_t EventLog::count(Operation operation) const {
    const std::lock_guard guard(mutex_);
    return static_cast<size_t>(std::count_if(events_.begin(), events_.end(),
                                             [&](const Event &event) { return event.operation == operation; }));
}

std::string EventLog::text(Category categories) const {
    std::string all;
    for (const std::string &line : lines(categories))
        all += line + '\n';
    return all;
}

EventLog &eventLog() {
    static auto *const log = new EventLog;
    return *log;
}

}  // namespace tavdb_test
