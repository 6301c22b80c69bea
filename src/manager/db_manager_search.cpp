// SPDX-License-Identifier: Apache-2.0
// Search by name: absolute paths start at the root, relative ones among the
// children of the session's current component.
#include "control/db_trace.h"
#include "model/db_component.h"
#include "tavdb_modules.h"

namespace tavdb {
namespace {

constexpr const char *kSearch = "tavDBMSearchByName";

uint32_t searchAbsolute(tavDBMSession *session, const char *name) {
    const uint32_t found = comp_searchByName(session, comp_getRoot(session), name);
    if (found == 0 && lastError(session) == TAVDB_ERR_NOT_BELOW) {
        traceErrorText({kSearch, 170}, name);
        session->errorCode = TAVDB_ERR_NO_MATCH;  // deliberate: only the code changes, the detail stays
    }
    return found;
}

uint32_t searchRelative(tavDBMSession *session, const char *name) {
    tavDBMNode current;
    if (comp_getNode(session, session->currentComponent, &current) == nullptr)
        return 0;
    uint32_t found = 0;
    walkSiblings(session, current.firstChild, {kSearch, 211}, [&](uint32_t child) {
        found = comp_searchByName(session, child, name);
        return found != 0 || lastError(session) == TAVDB_ERR_NOT_BELOW;
    });
    if (found != 0 || lastError(session) == TAVDB_ERR_NOT_BELOW)
        return found;
    traceErrorText({kSearch, 217}, name);
    session_setError(session, TAVDB_ERR_NOT_BELOW, 0);
    return 0;
}

}  // namespace
}  // namespace tavdb

using namespace tavdb;

uint32_t tavDBMSearchByName(tavDBMSession *session, const char *name) {
    if (session == nullptr || name == nullptr) {
        fail(session, TAVDB_ERR_NULL_ARGUMENT, 0, {__func__, 229});
        return 0;
    }
    return name[0] == '/' ? searchAbsolute(session, name) : searchRelative(session, name);
}
