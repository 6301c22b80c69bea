// SPDX-License-Identifier: Apache-2.0
#include "control/db_trace.h"

#include "tavdb_platform.h"

namespace tavdb {

namespace {
constexpr int32_t kErrorLevel = 0;
constexpr int32_t kRemarkLevel = 2;

const char *printable(const char *text) {
    return text != nullptr ? text : "";
}
}  // namespace

void traceEnter(const char *function) {
    dbs_me_debug_trace(kRemarkLevel, "%s():[Enter]\n", function);
}

void traceReturn(const char *function) {
    dbs_me_debug_trace(kRemarkLevel, "%s():[Return]\n", function);
}

void traceDebugText(Site site, const char *text) {
    dbs_me_debug_trace(kRemarkLevel, "%s():[Debug]:[%d][%s]\n", site.function, site.printed(), printable(text));
}

void traceErrorText(Site site, const char *text) {
    dbs_me_debug_trace(kErrorLevel, "%s():[Error]:[%d][%s]\n", site.function, site.printed(), printable(text));
}

void traceErrorCodeText(Site site, int32_t code, const char *text) {
    dbs_me_debug_trace(kErrorLevel, "%s():[Error]:[%d][0x%8x][%s]\n", site.function, site.printed(),
                       static_cast<uint32_t>(code), printable(text));
}

int32_t failFields(tavDBMSession *session, int32_t code, uint32_t detail, Site site, Fields fields) {
    traceErrorFields(site, fields);
    return session_setError(session, code, detail);
}

void traceErrorFields(Site site, Fields fields) {
    const char *const f = site.function;
    const int32_t n = site.printed();
    const uint32_t *const w = fields.words;
    switch (fields.count) {
        case 0:
            return dbs_me_debug_trace(kErrorLevel, "%s():[Error]:[%d]\n", f, n);
        case 1:
            return dbs_me_debug_trace(kErrorLevel, "%s():[Error]:[%d][0x%8x]\n", f, n, w[0]);
        case 2:
            return dbs_me_debug_trace(kErrorLevel, "%s():[Error]:[%d][0x%8x][0x%8x]\n", f, n, w[0], w[1]);
        case 3:
            return dbs_me_debug_trace(kErrorLevel, "%s():[Error]:[%d][0x%8x][0x%8x][0x%8x]\n", f, n, w[0], w[1], w[2]);
        default:
            return dbs_me_debug_trace(kErrorLevel, "%s():[Error]:[%d][0x%8x][0x%8x][0x%8x][0x%8x]\n", f, n, w[0], w[1],
                                      w[2], w[3]);
    }
}

}  // namespace tavdb
