// SPDX-License-Identifier: Apache-2.0
// The library's trace lines: one door for each of their forms, the texts in
// db_trace.cpp. A site number is fixed: it names a place for good and does not
// change when code moves.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tavdb_modules.h"

namespace tavdb {

/// Where a trace line comes from. The number is as wide as the address, so that a site is handed over without padding.
struct Site {
    const char *function;
    intptr_t number;

    constexpr int32_t printed() const {
        return static_cast<int32_t>(number);
    }

    /// The site that stands this far behind, in functions whose sites follow each other.
    constexpr Site operator+(int32_t offset) const {
        return {function, number + offset};
    }
};

void traceEnter(const char *function);
void traceReturn(const char *function);
/// The fields of an "[Error]" line: up to four words.
struct Fields {
    const uint32_t *words;
    size_t count;
};
[[gnu::cold]] void traceErrorFields(Site site, Fields fields);
[[gnu::cold]] int32_t failFields(tavDBMSession *session, int32_t code, uint32_t detail, Site site, Fields fields);
/// "[Error]" with a text, for example a path.
[[gnu::cold]] void traceErrorText(Site site, const char *text);
/// "[Error]" with a code and a text.
[[gnu::cold]] void traceErrorCodeText(Site site, int32_t code, const char *text);
/// "[Debug]" with a text, at level 2.
void traceDebugText(Site site, const char *text);

/// traceError and fail of as many words. Kept out of the functions that may fail: these then have no array of fields
/// on their stacks, which would have to be guarded.
template <typename... Words>
[[gnu::cold, gnu::noinline]] void traceWords(Site site, Words... words) {
    static_assert(sizeof...(words) <= 4);
    const uint32_t fields[] = {words..., 0};
    traceErrorFields(site, {fields, sizeof...(words)});
}
template <typename... Words>
[[gnu::cold, gnu::noinline]] int32_t failWords(tavDBMSession *session, int32_t code, uint32_t detail, Site site,
                                               Words... words) {
    static_assert(sizeof...(words) <= 4);
    const uint32_t fields[] = {words..., 0};
    return failFields(session, code, detail, site, {fields, sizeof...(words)});
}

/// "[Error]" with up to four hexadecimal fields.
template <typename... Words>
void traceError(Site site, Words... words) {
    traceWords(site, static_cast<uint32_t>(words)...);
}

/// Traces a failure and records it in the session. @return code
template <typename... Words>
int32_t fail(tavDBMSession *session, int32_t code, uint32_t detail, Site site, Words... words) {
    return failWords(session, code, detail, site, static_cast<uint32_t>(words)...);
}

/// The code that a callee left in the session; without a session no database is open.
inline int32_t lastError(const tavDBMSession *session) {
    return session != nullptr ? static_cast<int32_t>(session->errorCode) : TAVDB_ERR_NOT_OPEN;
}

/// Traces a function's entry and every way out of it.
class TracedScope {
public:
    explicit TracedScope(const char *function) : function_(function) {
        traceEnter(function_);
    }
    ~TracedScope() {
        traceReturn(function_);
    }
    TracedScope(const TracedScope &) = delete;
    TracedScope &operator=(const TracedScope &) = delete;

private:
    const char *function_;
};

}  // namespace tavdb
