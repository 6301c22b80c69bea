// SPDX-License-Identifier: Apache-2.0
#include "lock/lock_test_support.h"

#include <cstdio>

namespace tavdb_test {

std::string ringLine(uint32_t sequence, const std::vector<uint32_t> &words) {
    char text[32];
    snprintf(text, sizeof text, "[%10u]:", sequence);
    std::string line = text;
    for (const uint32_t word : words) {
        snprintf(text, sizeof text, "[0x%8x]", word);
        line += text;
    }
    return line + '\n';
}

std::vector<std::string> ringLines(const std::string &title) {
    constexpr int32_t kStatics = 98;
    const size_t before = fakeTrace().texts(kStatics).size();
    dbs_me_db_lock_debug_info(kStatics, nullptr, nullptr);
    const std::vector<std::string> lines = fakeTrace().texts(kStatics);
    std::vector<std::string> records;
    bool isUnderTitle = false;
    for (size_t i = before; i < lines.size(); i++) {
        const bool isRecord = lines[i].find("]:[0x") != std::string::npos;
        if (isRecord && isUnderTitle)
            records.push_back(lines[i]);
        if (!isRecord)
            isUnderTitle = lines[i] == title;
    }
    return records;
}

std::vector<uint32_t> LockTest::held() const {
    const LockView view = table();
    return chain(view->entry, view->first);
}

std::vector<uint32_t> LockTest::heldComponents() const {
    const LockView view = table();
    std::vector<uint32_t> components;
    for (const uint32_t index : chain(view->entry, view->first))
        components.push_back(view->entry[index].component);
    return components;
}

std::vector<uint32_t> LockTest::owners() const {
    const LockView view = table();
    std::vector<uint32_t> ids;
    for (const uint32_t index : chain(view->entry, view->first))
        ids.push_back(view->entry[index].owner);
    return ids;
}

tavDBMSession LockTest::sessionOf(uint32_t sessionId) const {
    tavDBMSession other = session;
    other.sessionId = sessionId;
    return other;
}

tavDBMSession LockTest::sessionIn(uint32_t dbId) const {
    tavDBMSession other = session;
    other.dbId = dbId;
    return other;
}

void LockTest::lockAll(const std::vector<uint32_t> &components) {
    for (const uint32_t component : components)
        ASSERT_EQ(tavDBMLock(&session, component, kTry), 0) << component;
}

void LockTest::fill(uint32_t first, uint32_t count) {
    lockAll(ascending(first, first + count - 1));
}

testing::AssertionResult LockTest::sessionKeeps(uint32_t code, uint32_t detail) const {
    if (session.errorCode == code && session.errorDetail == detail)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "the session has " << session.errorCode << " (" << session.errorDetail << ")";
}

}  // namespace tavdb_test
